#include "services/detail/contentmatcher.h"

#include "operations/commandererror.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

namespace quillorn::detail {

namespace {

// How common a byte is in text and source code, roughly: the scan looks for
// the two rarest bytes of the text, so that few places need a full comparison.
int commonness(unsigned char byte)
{
    static constexpr std::string_view lettersByFrequency = "etaoinsrhldcumfpgwybvkxjqz";
    if (byte >= 'a' && byte <= 'z')
        return 250 - 4 * int(lettersByFrequency.find(char(byte)));
    if (byte >= 'A' && byte <= 'Z')
        return 150 - 2 * int(lettersByFrequency.find(char(byte - 'A' + 'a')));
    if (byte == ' ')
        return 255;
    if (byte == '\n' || byte == '\t')
        return 220;
    if (byte >= '0' && byte <= '9')
        return byte <= '1' ? 190 : 175;
    if (std::string_view("_,.;()*/-=\"#{}<>:'").find(char(byte)) != std::string_view::npos)
        return 200;
    if (byte > ' ' && byte < 0x7f)
        return 120;
    return byte >= 0x80 ? 60 : 20;
}

bool isAscii(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// The byte text as the scans see it.
struct Probe {
    const char *needle;
    const char *fold;
    std::size_t length;
    std::size_t rare;
    std::size_t other;

    bool equalAt(const char *at) const
    {
        for (std::size_t i = 0; i < length; ++i)
            if (char(at[i] | fold[i]) != needle[i])
                return false;
        return true;
    }
};

#if defined(__x86_64__)
// Candidate starts are the places where both the rare and the other byte fit;
// each scan goes on from `start` while a whole vector of starts is left.
std::size_t scanSse2(const char *data, std::size_t starts, std::size_t &start, const Probe &probe)
{
    const __m128i rareByte = _mm_set1_epi8(probe.needle[probe.rare]);
    const __m128i rareFold = _mm_set1_epi8(probe.fold[probe.rare]);
    const __m128i otherByte = _mm_set1_epi8(probe.needle[probe.other]);
    const __m128i otherFold = _mm_set1_epi8(probe.fold[probe.other]);
    for (; start + 16 <= starts; start += 16) {
        const __m128i rare = _mm_loadu_si128(reinterpret_cast<const __m128i *>(data + start + probe.rare));
        const __m128i other = _mm_loadu_si128(reinterpret_cast<const __m128i *>(data + start + probe.other));
        auto bits = unsigned(
            _mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(_mm_or_si128(rare, rareFold), rareByte),
                                            _mm_cmpeq_epi8(_mm_or_si128(other, otherFold), otherByte))));
        for (; bits != 0; bits &= bits - 1) {
            const std::size_t at = start + unsigned(__builtin_ctz(bits));
            if (probe.equalAt(data + at))
                return at;
        }
    }
    return ContentMatcher::npos;
}

__attribute__((target("avx2"))) std::size_t scanAvx2(const char *data, std::size_t starts, std::size_t &start,
                                                     const Probe &probe)
{
    const __m256i rareByte = _mm256_set1_epi8(probe.needle[probe.rare]);
    const __m256i rareFold = _mm256_set1_epi8(probe.fold[probe.rare]);
    const __m256i otherByte = _mm256_set1_epi8(probe.needle[probe.other]);
    const __m256i otherFold = _mm256_set1_epi8(probe.fold[probe.other]);
    for (; start + 32 <= starts; start += 32) {
        const __m256i rare = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(data + start + probe.rare));
        const __m256i other =
            _mm256_loadu_si256(reinterpret_cast<const __m256i *>(data + start + probe.other));
        auto bits = unsigned(_mm256_movemask_epi8(
            _mm256_and_si256(_mm256_cmpeq_epi8(_mm256_or_si256(rare, rareFold), rareByte),
                             _mm256_cmpeq_epi8(_mm256_or_si256(other, otherFold), otherByte))));
        for (; bits != 0; bits &= bits - 1) {
            const std::size_t at = start + unsigned(__builtin_ctz(bits));
            if (probe.equalAt(data + at))
                return at;
        }
    }
    return ContentMatcher::npos;
}

const bool hasAvx2 = __builtin_cpu_supports("avx2");
#endif

std::string patternProblem(int code, PCRE2_SIZE offset)
{
    std::array<PCRE2_UCHAR, 256> message{};
    pcre2_get_error_message(code, message.data(), message.size());
    return "The regular expression is not valid: " +
           std::string(reinterpret_cast<const char *>(message.data())) + " (at " + std::to_string(offset) +
           ").";
}

} // namespace

ContentMatcher::Scratch::~Scratch()
{
    pcre2_match_data_free(static_cast<pcre2_match_data *>(m_data));
}

ContentMatcher::ContentMatcher(const ContentQuery &query)
{
    const QByteArray utf8 = query.text.toUtf8();
    const std::string_view text(utf8.constData(), std::size_t(utf8.size()));
    if (text.size() > longestText)
        throw CommanderError("The text to search for is too long.");
    if (!query.regularExpression && (query.matchCase || isAscii(text))) {
        m_needle.assign(text);
        m_fold.assign(text.size(), 0);
        // Here a text whose case is ignored is ASCII: its letters fold by one bit.
        for (std::size_t i = 0; i < text.size() && !query.matchCase; ++i) {
            const char lower = char(text[i] | 0x20);
            if (lower >= 'a' && lower <= 'z') {
                m_needle[i] = lower;
                m_fold[i] = 0x20;
            }
        }
        const auto rank = [&](std::size_t i) { return commonness(static_cast<unsigned char>(m_needle[i])); };
        for (std::size_t i = 1; i < m_needle.size(); ++i)
            if (rank(i) < rank(m_rare))
                m_rare = i;
        m_other = m_rare;
        for (std::size_t i = 0; i < m_needle.size(); ++i)
            if (i != m_rare && (m_other == m_rare || rank(i) < rank(m_other) ||
                                (m_needle[m_other] == m_needle[m_rare] && m_needle[i] != m_needle[m_rare])))
                m_other = i;
        return;
    }
    uint32_t options = PCRE2_UTF | PCRE2_MATCH_INVALID_UTF;
    if (!query.matchCase)
        options |= PCRE2_CASELESS;
    // \C could match half a character; a literal takes no other options.
    options |= query.regularExpression ? PCRE2_MULTILINE | PCRE2_NEVER_BACKSLASH_C : PCRE2_LITERAL;
    int error = 0;
    PCRE2_SIZE offset = 0;
    pcre2_code *code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), options, &error,
                                     &offset, nullptr);
    if (code == nullptr)
        throw CommanderError(patternProblem(error, offset));
    // Without JIT (a machine that forbids executable memory) PCRE2 interprets.
    pcre2_jit_compile(code, PCRE2_JIT_COMPLETE);
    m_code = code;
}

ContentMatcher::~ContentMatcher()
{
    pcre2_code_free(static_cast<pcre2_code *>(m_code));
}

std::unique_ptr<ContentMatcher::Scratch> ContentMatcher::scratch() const
{
    std::unique_ptr<Scratch> scratch(new Scratch);
    if (m_code != nullptr)
        scratch->m_data = pcre2_match_data_create_from_pattern(static_cast<pcre2_code *>(m_code), nullptr);
    return scratch;
}

std::size_t ContentMatcher::find(std::string_view bytes, bool midLine, Scratch &scratch) const
{
    return m_code != nullptr ? findPattern(bytes, midLine, scratch) : findBytes(bytes);
}

std::size_t ContentMatcher::findBytes(std::string_view bytes) const
{
    const Probe probe{m_needle.data(), m_fold.data(), m_needle.size(), m_rare, m_other};
    if (bytes.size() < probe.length)
        return npos;
    const std::size_t starts = bytes.size() - probe.length + 1;
    std::size_t start = 0;
#if defined(__x86_64__)
    if (hasAvx2) {
        if (const std::size_t found = scanAvx2(bytes.data(), starts, start, probe); found != npos)
            return found;
    }
    if (const std::size_t found = scanSse2(bytes.data(), starts, start, probe); found != npos)
        return found;
#endif
    for (; start < starts; ++start)
        if (probe.equalAt(bytes.data() + start))
            return start;
    return npos;
}

std::size_t ContentMatcher::findPattern(std::string_view bytes, bool midLine, Scratch &scratch) const
{
    const auto *code = static_cast<const pcre2_code *>(m_code);
    auto *data = static_cast<pcre2_match_data *>(scratch.m_data);
    const auto *subject = reinterpret_cast<PCRE2_SPTR>(bytes.data());
    const PCRE2_SIZE *found = pcre2_get_ovector_pointer(data);
    std::size_t start = 0;
    while (start <= bytes.size()) {
        // Below zero: no match, or one of PCRE2's limits reached: nothing found here.
        if (pcre2_match(code, subject, bytes.size(), start, midLine ? PCRE2_NOTBOL : 0, data, nullptr) < 0)
            return npos;
        const std::size_t begin = found[0];
        const std::size_t end = std::max(found[0], found[1]);
        if (std::memchr(bytes.data() + begin, '\n', end - begin) == nullptr)
            return begin;
        // A match across lines counts only where the line it starts on matches alone.
        const std::size_t lineEnd = bytes.find('\n', begin);
        const std::size_t lineStart = begin == 0 ? 0 : bytes.rfind('\n', begin - 1) + 1;
        const uint32_t first = midLine && lineStart == 0 ? PCRE2_NOTBOL : 0;
        if (pcre2_match(code, subject + lineStart, lineEnd - lineStart, begin - lineStart, first, data,
                        nullptr) >= 0)
            return lineStart + found[0];
        start = lineEnd + 1;
    }
    return npos;
}

} // namespace quillorn::detail
