#pragma once

#include "tools/detail/rowmap.h"
#include "tools/detail/syntaxrules.h"
#include "tools/detail/textbuffer.h"

#include <QFont>
#include <QPointer>
#include <QTextCharFormat>
#include <QTextLayout>

#include <array>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

class QPainter;

namespace quillorn::detail {

class SyntaxHighlighting;

// The laid-out rows of an editor view, made when first drawn and kept while
// their line stays as it was. A row is laid out by itself in one QTextLayout
// with its colours, and a character that a layout would not draw as it is (a
// control, a carriage return, a line or paragraph separator, a noncharacter)
// stands as a no-break space spaced out to a small label drawn over it. The
// row's position in the text never changes: only what is drawn does.
class RowLayouts {
public:
    struct Row {
        QTextLayout layout;
        std::vector<std::pair<int, QString>> marks; // where a label stands for a character
    };

    RowLayouts(const TextBuffer &text, const RowMap &rows) : m_text(text), m_rows(rows) {}

    void setFont(const QFont &font);
    void setHighlighting(const SyntaxHighlighting *highlighting);
    void setColours(const std::array<QTextCharFormat, syntaxKindCount> &syntax, const QTextCharFormat &marks);

    const Row &row(qsizetype line, qsizetype index);
    // Rows of lines [first, last] are made again when next drawn.
    bool forget(qsizetype first, qsizetype last);
    void clear();
    // The widest row laid out, in pixels.
    int widest() const { return m_widest; }
    void resetWidest() { m_widest = 0; }

    void paintMarks(QPainter &painter, const Row &row, const QTextLayout &layout, QPointF origin,
                    int height) const;

private:
    QFont markFont() const;

    const TextBuffer &m_text;
    const RowMap &m_rows;
    QPointer<const SyntaxHighlighting> m_highlighting;
    QFont m_font;
    std::array<QTextCharFormat, syntaxKindCount> m_syntax;
    QTextCharFormat m_marks;
    std::unordered_map<quint64, std::unique_ptr<Row>> m_made;
    int m_widest = 0;
};

} // namespace quillorn::detail
