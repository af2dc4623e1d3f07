#pragma once

#include <QString>

#include <utility>
#include <vector>

namespace quillorn::detail {

// The display rows the lines of a text take. A line of at most `longLine`
// UTF-16 units is one row, however wide. A longer one is cut into rows of
// `rowLength` units each, moved back where a cut would part a surrogate pair or
// a character from its combining marks: the view then never lays out more than
// one row's worth of a line, and a row's place follows from its number without
// reading the text before it. The cuts are no line breaks: the line stays one.
class RowMap {
public:
    static constexpr qsizetype longLine = 2000;

    // Rows of a long line; a change re-reads the lines through reset().
    void setRowLength(qsizetype units) { m_rowLength = std::max<qsizetype>(units, 16); }
    qsizetype rowLength() const { return m_rowLength; }

    void reset(const std::vector<QString> &lines);
    // Lines [first, first + removed) became [first, first + added) of `lines`.
    void update(const std::vector<QString> &lines, qsizetype first, qsizetype removed, qsizetype added);

    qsizetype rowCount() const { return m_first.back(); }
    qsizetype firstRow(qsizetype line) const { return m_first[std::size_t(line)]; }
    qsizetype rowsOf(qsizetype line) const { return firstRow(line + 1) - firstRow(line); }
    qsizetype lineOfRow(qsizetype row) const;

    // Units [first, second) of `line` that its row `index` shows.
    std::pair<qsizetype, qsizetype> span(const QString &line, qsizetype index) const;
    // The row of its line that shows `column`: at a cut, the later row.
    qsizetype rowIndexOf(const QString &line, qsizetype column) const;

private:
    qsizetype rowsFor(qsizetype length) const;
    qsizetype cut(const QString &line, qsizetype index) const;

    qsizetype m_rowLength = 160;
    std::vector<qsizetype> m_first{0}; // first row of each line, and the row count last
};

} // namespace quillorn::detail
