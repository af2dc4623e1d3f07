#pragma once

#include <QString>
#include <memory>
#include <string>
#include <string_view>

struct UCollator;

namespace quillorn {

// The order a file browser shows names in: ICU collation in the user's locale,
// case-insensitive, with digit runs compared by value ("a9" before "a10").
// Under the C or POSIX locale the root ICU locale is used: Qt's QCollator skips
// ICU there and loses numeric ordering. One instance per thread; an instance is
// not safe to share between threads.
class Collation {
public:
    // The user's locale (QLocale::system()).
    Collation();
    // A BCP 47 tag such as "de-DE"; "C", "POSIX" or empty mean the root locale.
    explicit Collation(const QString &localeName);
    ~Collation();
    Collation(Collation &&) noexcept;
    Collation &operator=(Collation &&) noexcept;

    // <0, 0 or >0 as a orders before, with or after b.
    int compare(const QString &a, const QString &b) const;

    // Byte strings that order as compare() does under memcmp (std::string's operator<).
    std::string sortKey(const QString &text) const;
    // Appends the key of UTF-8 bytes (invalid sequences count as U+FFFD) to out
    // and returns its length; lets a caller pack many keys into one buffer.
    std::size_t appendSortKey(std::string_view utf8, std::string &out) const;

    // The ICU locale in use, for diagnostics ("root" for the root locale).
    std::string localeName() const;

private:
    struct Closer {
        void operator()(UCollator *collator) const;
    };
    std::unique_ptr<UCollator, Closer> m_collator;
};

// The locale Collation() uses: QLocale::system()'s BCP 47 name, or empty when
// the process runs under the C or POSIX locale.
QString userCollationLocale();

} // namespace quillorn
