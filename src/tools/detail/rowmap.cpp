#include "tools/detail/rowmap.h"

#include <algorithm>

namespace quillorn::detail {

namespace {

// Whether a cut before `units[at]` would part it from what comes before.
bool bindsBackward(const QString &units, qsizetype at)
{
    const char16_t unit = units[at].unicode();
    if (QChar::isLowSurrogate(unit) || unit == 0x200d || units[at - 1].unicode() == 0x200d)
        return true;
    char32_t code = unit;
    if (QChar::isHighSurrogate(unit) && at + 1 < units.size() && units[at + 1].isLowSurrogate())
        code = QChar::surrogateToUcs4(unit, units[at + 1].unicode());
    switch (QChar::category(code)) {
    case QChar::Mark_NonSpacing:
    case QChar::Mark_SpacingCombining:
    case QChar::Mark_Enclosing:
        return true;
    default:
        return (code >= 0xfe00 && code <= 0xfe0f) ||
               (code >= 0x1f3fb && code <= 0x1f3ff); // selectors, skin tones
    }
}

} // namespace

qsizetype RowMap::rowsFor(qsizetype length) const
{
    return length <= longLine ? 1 : (length + m_rowLength - 1) / m_rowLength;
}

void RowMap::reset(const std::vector<QString> &lines)
{
    m_first.assign(lines.size() + 1, 0);
    for (std::size_t i = 0; i < lines.size(); ++i)
        m_first[i + 1] = m_first[i] + rowsFor(lines[i].size());
}

void RowMap::update(const std::vector<QString> &lines, qsizetype first, qsizetype removed, qsizetype added)
{
    if (removed != added) {
        const auto at = m_first.begin() + first + 1;
        if (added > removed)
            m_first.insert(at, std::size_t(added - removed), 0);
        else
            m_first.erase(at, at + (removed - added));
    }
    // Only the rows after the change move; a key within one line of one row moves none.
    const std::size_t start = std::size_t(first);
    std::size_t i = start;
    for (; i < start + std::size_t(added); ++i)
        m_first[i + 1] = m_first[i] + rowsFor(lines[i].size());
    if (removed == added && (i == lines.size() || m_first[i] + rowsFor(lines[i].size()) == m_first[i + 1]))
        return; // rows unchanged past the change
    for (; i < lines.size(); ++i)
        m_first[i + 1] = m_first[i] + rowsFor(lines[i].size());
}

qsizetype RowMap::lineOfRow(qsizetype row) const
{
    const auto after = std::upper_bound(m_first.begin(), m_first.end() - 1, std::max<qsizetype>(row, 0));
    return std::max<qsizetype>(qsizetype(after - m_first.begin()) - 1, 0);
}

qsizetype RowMap::cut(const QString &line, qsizetype index) const
{
    if (index <= 0)
        return 0;
    const qsizetype rows = rowsFor(line.size());
    if (index >= rows)
        return line.size();
    const qsizetype wanted = index * m_rowLength;
    qsizetype at = wanted;
    // Back a few units at most: a cut never reaches the one before it.
    while (at > wanted - 8 && bindsBackward(line, at))
        --at;
    if (at == wanted - 8) // a run of marks: keep at least the surrogates together
        at = wanted - (line[wanted].isLowSurrogate() ? 1 : 0);
    return at;
}

std::pair<qsizetype, qsizetype> RowMap::span(const QString &line, qsizetype index) const
{
    return {cut(line, index), cut(line, index + 1)};
}

qsizetype RowMap::rowIndexOf(const QString &line, qsizetype column) const
{
    const qsizetype rows = rowsFor(line.size());
    if (rows == 1)
        return 0;
    qsizetype index = std::min(column / m_rowLength, rows - 1);
    while (index > 0 && column < cut(line, index))
        --index;
    while (index + 1 < rows && column >= cut(line, index + 1))
        ++index;
    return index;
}

} // namespace quillorn::detail
