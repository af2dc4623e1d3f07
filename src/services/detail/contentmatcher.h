#pragma once

#include "services/searchreport.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace quillorn::detail {

// Finds where a content search's text first occurs in a stretch of a file.
// Plain text is found by its bytes: with case ignored, an ASCII text folds
// ASCII letters only, as grep does in the C locale, and is found by a
// vectorised scan for its two rarest bytes in both cases; a text with other
// characters goes to PCRE2 as a literal, which folds them by Unicode's simple
// case folding. A regular expression goes to PCRE2 (JIT-compiled where the
// machine allows), in UTF mode that also reads invalid UTF-8, and a match must
// lie within one line. One matcher serves every thread, each with its own
// Scratch.
class ContentMatcher {
public:
    // Per-thread state of a match (PCRE2's match data).
    class Scratch {
    public:
        ~Scratch();
        Scratch(const Scratch &) = delete;
        Scratch &operator=(const Scratch &) = delete;

    private:
        friend class ContentMatcher;
        Scratch() = default;
        void *m_data = nullptr;
    };

    // Throws CommanderError when the expression is not valid or the text too long.
    explicit ContentMatcher(const ContentQuery &query);
    ~ContentMatcher();
    ContentMatcher(const ContentMatcher &) = delete;
    ContentMatcher &operator=(const ContentMatcher &) = delete;

    std::unique_ptr<Scratch> scratch() const;

    // Where the first match in `bytes` starts, or npos. `midLine`: the bytes
    // start inside a line, so "^" does not match at their start.
    std::size_t find(std::string_view bytes, bool midLine, Scratch &scratch) const;

    // How a file is cut into stretches: a plain byte text can be cut anywhere
    // if the stretches overlap by overlap() bytes; whatever PCRE2 matches is
    // searched in whole lines.
    bool wholeLines() const { return m_code != nullptr; }
    std::size_t overlap() const { return m_needle.empty() ? 0 : m_needle.size() - 1; }

    static constexpr std::size_t npos = std::string_view::npos;
    static constexpr std::size_t longestText = 4096;

private:
    std::size_t findBytes(std::string_view bytes) const;
    std::size_t findPattern(std::string_view bytes, bool midLine, Scratch &scratch) const;
    bool equalAt(const char *at) const;

    // The byte text: folded to lower case where `m_fold` holds 0x20 (an ASCII
    // letter of a text whose case is ignored), so that (byte | fold) == needle.
    std::string m_needle;
    std::string m_fold;
    std::size_t m_rare = 0;  // the positions of its rarest byte
    std::size_t m_other = 0; // and of the next rarest
    void *m_code = nullptr;  // PCRE2's compiled pattern, else none
};

} // namespace quillorn::detail
