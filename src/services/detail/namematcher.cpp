#include "services/detail/namematcher.h"

#include <algorithm>

namespace quillorn::detail {

namespace {

char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c;
}

bool isAscii(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

} // namespace

NameMatcher::NameMatcher(const QString &query) : m_query(query)
{
    m_ascii = std::all_of(query.begin(), query.end(), [](QChar c) { return c.unicode() < 0x80; });
    if (m_ascii)
        for (QChar c : query)
            m_lower += lower(char(c.unicode()));
}

bool NameMatcher::matches(std::string_view name) const
{
    if (m_ascii && isAscii(name))
        return containsAscii(name);
    return QString::fromUtf8(name.data(), qsizetype(name.size())).contains(m_query, Qt::CaseInsensitive);
}

bool NameMatcher::containsAscii(std::string_view name) const
{
    const std::size_t needle = m_lower.size();
    if (needle > name.size())
        return false;
    for (std::size_t start = 0; start + needle <= name.size(); ++start) {
        std::size_t index = 0;
        while (index < needle && lower(name[start + index]) == m_lower[index])
            ++index;
        if (index == needle)
            return true;
    }
    return false;
}

} // namespace quillorn::detail
