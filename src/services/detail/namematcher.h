#pragma once

#include <QString>
#include <string>
#include <string_view>

namespace quillorn::detail {

// Case-insensitive containment as QString::contains does it, with a byte-wise
// shortcut where both the query and the name are ASCII: there case folding is
// plain ASCII lower-casing. A name with other bytes goes the Unicode way, so
// "k" still matches the Kelvin sign and invalid bytes match as U+FFFD.
class NameMatcher {
public:
    explicit NameMatcher(const QString &query);

    bool matches(std::string_view name) const;

private:
    bool containsAscii(std::string_view name) const;

    QString m_query;
    bool m_ascii = false;
    std::string m_lower;
};

} // namespace quillorn::detail
