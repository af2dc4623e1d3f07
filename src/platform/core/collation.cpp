#include "platform/core/collation.h"

#include <QLocale>
#include <stdexcept>
#include <unicode/ucol.h>
#include <unicode/ustring.h>
#include <vector>

namespace quillorn {

namespace {

bool isPosixLocaleName(const QString &name)
{
    return name.isEmpty() || name == QLatin1String("C") || name.startsWith(QLatin1String("C.")) ||
           name == QLatin1String("POSIX");
}

UCollator *openCollator(const QString &localeName)
{
    // ICU takes "" as the default locale, which follows LANG; the root locale is "root".
    const QByteArray icuName =
        isPosixLocaleName(localeName) ? QByteArrayLiteral("root") : localeName.toLatin1();
    UErrorCode status = U_ZERO_ERROR;
    char canonical[ULOC_FULLNAME_CAPACITY] = {};
    int32_t parsed = 0;
    uloc_forLanguageTag(icuName.constData(), canonical, sizeof canonical, &parsed, &status);
    if (U_FAILURE(status) || canonical[0] == '\0') {
        status = U_ZERO_ERROR;
        qstrncpy(canonical, "root", sizeof canonical);
    }
    UCollator *collator = ucol_open(canonical, &status);
    if (U_FAILURE(status)) {
        status = U_ZERO_ERROR;
        collator = ucol_open("root", &status);
    }
    if (U_FAILURE(status) || !collator)
        throw std::runtime_error("ICU collation is unavailable");
    // Secondary strength: accents count, letter case does not.
    ucol_setStrength(collator, UCOL_SECONDARY);
    ucol_setAttribute(collator, UCOL_NUMERIC_COLLATION, UCOL_ON, &status);
    return collator;
}

const UChar *utf16(const QString &text)
{
    return reinterpret_cast<const UChar *>(text.utf16());
}

} // namespace

QString userCollationLocale()
{
    const QLocale locale = QLocale::system();
    if (locale.language() == QLocale::C)
        return {};
    return locale.bcp47Name();
}

void Collation::Closer::operator()(UCollator *collator) const
{
    ucol_close(collator);
}

Collation::Collation() : Collation(userCollationLocale())
{
}

Collation::Collation(const QString &localeName) : m_collator(openCollator(localeName))
{
}

Collation::~Collation() = default;
Collation::Collation(Collation &&) noexcept = default;
Collation &Collation::operator=(Collation &&) noexcept = default;

int Collation::compare(const QString &a, const QString &b) const
{
    return ucol_strcoll(m_collator.get(), utf16(a), static_cast<int32_t>(a.size()), utf16(b),
                        static_cast<int32_t>(b.size()));
}

std::string Collation::sortKey(const QString &text) const
{
    std::string key;
    std::vector<uint8_t> buffer(static_cast<std::size_t>(text.size()) * 4 + 16);
    for (;;) {
        const int32_t length =
            ucol_getSortKey(m_collator.get(), utf16(text), static_cast<int32_t>(text.size()), buffer.data(),
                            static_cast<int32_t>(buffer.size()));
        if (static_cast<std::size_t>(length) <= buffer.size()) {
            // The length counts the terminating zero byte, which adds nothing to the order.
            key.assign(reinterpret_cast<const char *>(buffer.data()), length > 0 ? length - 1 : 0);
            return key;
        }
        buffer.resize(static_cast<std::size_t>(length));
    }
}

std::size_t Collation::appendSortKey(std::string_view utf8, std::string &out) const
{
    thread_local std::vector<UChar> text;
    thread_local std::vector<uint8_t> key;
    text.resize(utf8.size() + 1);
    int32_t textLength = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8WithSub(text.data(), static_cast<int32_t>(text.size()), &textLength, utf8.data(),
                         static_cast<int32_t>(utf8.size()), 0xFFFD, nullptr, &status);
    if (U_FAILURE(status))
        textLength = 0;
    if (key.size() < utf8.size() * 4 + 16)
        key.resize(utf8.size() * 4 + 16);
    int32_t length = ucol_getSortKey(m_collator.get(), text.data(), textLength, key.data(),
                                     static_cast<int32_t>(key.size()));
    if (static_cast<std::size_t>(length) > key.size()) {
        key.resize(static_cast<std::size_t>(length));
        length = ucol_getSortKey(m_collator.get(), text.data(), textLength, key.data(),
                                 static_cast<int32_t>(key.size()));
    }
    const std::size_t keyLength = length > 0 ? static_cast<std::size_t>(length) - 1 : 0;
    out.append(reinterpret_cast<const char *>(key.data()), keyLength);
    return keyLength;
}

std::string Collation::localeName() const
{
    UErrorCode status = U_ZERO_ERROR;
    const char *name = ucol_getLocaleByType(m_collator.get(), ULOC_ACTUAL_LOCALE, &status);
    if (U_FAILURE(status) || !name || !*name)
        return "root";
    return name;
}

} // namespace quillorn
