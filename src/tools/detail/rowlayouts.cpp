#include "tools/detail/rowlayouts.h"

#include "tools/detail/syntaxhighlighting.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QTextLine>

#include <cmath>

namespace quillorn::detail {

namespace {

// What a character that is not drawn as it is shows instead. Fonts seldom
// hold the control pictures, so the label is drawn by the view.
QString markFor(char16_t unit)
{
    if (unit == u'\r')
        return QStringLiteral("CR");
    if (unit < 0x20 && unit != u'\t')
        return QLatin1Char('^') + QChar(unit + 0x40); // caret notation: ^A, ^[
    switch (unit) {
    case 0x7f:
        return QStringLiteral("^?");
    case 0x2028:
        return QStringLiteral("LS");
    case 0x2029:
        return QStringLiteral("PS");
    case 0xfdd0:
        return QStringLiteral("FDD0");
    case 0xfdd1:
        return QStringLiteral("FDD1");
    default:
        return QString();
    }
}

quint64 rowKey(qsizetype line, qsizetype index)
{
    return (quint64(line) << 24) | quint64(index);
}

} // namespace

void RowLayouts::setFont(const QFont &font)
{
    m_font = font;
    clear();
    m_widest = 0;
}

void RowLayouts::setHighlighting(const SyntaxHighlighting *highlighting)
{
    m_highlighting = highlighting;
    clear();
}

void RowLayouts::setColours(const std::array<QTextCharFormat, syntaxKindCount> &syntax,
                            const QTextCharFormat &marks)
{
    m_syntax = syntax;
    m_marks = marks;
    clear();
}

void RowLayouts::clear()
{
    m_made.clear();
}

bool RowLayouts::forget(qsizetype first, qsizetype last)
{
    return std::erase_if(m_made, [&](const auto &entry) {
               const auto line = qsizetype(entry.first >> 24);
               return line >= first && line <= last;
           }) > 0;
}

QFont RowLayouts::markFont() const
{
    QFont small = m_font;
    small.setPointSizeF(small.pointSizeF() * 0.8);
    return small;
}

const RowLayouts::Row &RowLayouts::row(qsizetype line, qsizetype index)
{
    const quint64 key = rowKey(line, index);
    if (const auto found = m_made.find(key); found != m_made.end())
        return *found->second;
    if (m_made.size() > 2048) // rows long scrolled past
        m_made.clear();
    auto made = std::make_unique<Row>();
    const QString &units = m_text.line(line);
    const auto [start, end] = m_rows.span(units, index);
    QString shown = QStringView(units).mid(start, end - start).toString();

    QList<QTextLayout::FormatRange> formats;
    if (m_highlighting)
        if (const auto tokens = m_highlighting->tokens(line))
            for (const SyntaxToken &token : *tokens) {
                const qsizetype from = std::max(token.start, start);
                const qsizetype to = std::min(token.start + token.length, end);
                if (from < to)
                    formats.append({int(from - start), int(to - from), m_syntax[std::size_t(token.kind)]});
            }
    const QFontMetricsF metrics(m_font);
    const QFontMetricsF small(markFont());
    for (qsizetype i = 0; i < shown.size(); ++i)
        if (QString label = markFor(shown[i].unicode()); !label.isEmpty()) {
            shown[i] = QChar(0x00a0);
            QTextCharFormat format = m_marks;
            format.setFontLetterSpacingType(QFont::AbsoluteSpacing);
            format.setFontLetterSpacing(small.horizontalAdvance(label) + 4 -
                                        metrics.horizontalAdvance(shown[i]));
            formats.append({int(i), 1, format});
            made->marks.emplace_back(int(i), std::move(label));
        }

    QTextLayout &layout = made->layout;
    layout.setText(shown);
    layout.setFont(m_font);
    QTextOption option(Qt::AlignLeft | Qt::AlignAbsolute);
    option.setWrapMode(QTextOption::NoWrap);
    option.setTextDirection(Qt::LeftToRight);
    option.setTabStopDistance(metrics.horizontalAdvance(QLatin1Char(' ')) * 8);
    layout.setTextOption(option);
    layout.setFormats(formats);
    layout.setCacheEnabled(true);
    layout.beginLayout();
    QTextLine textLine = layout.createLine();
    textLine.setLineWidth(1e6);
    // One baseline for every row, whatever fallback font a character needs.
    textLine.setPosition(QPointF(0, metrics.ascent() - textLine.ascent()));
    layout.endLayout();
    m_widest = std::max(m_widest, int(std::ceil(textLine.naturalTextWidth())));
    return *m_made.emplace(key, std::move(made)).first->second;
}

void RowLayouts::paintMarks(QPainter &painter, const Row &row, const QTextLayout &layout, QPointF origin,
                            int height) const
{
    const QTextLine textLine = layout.lineAt(0);
    painter.save();
    painter.setFont(markFont());
    painter.setPen(m_marks.foreground().color());
    for (const auto &[at, label] : row.marks) {
        const qreal left = textLine.cursorToX(at);
        const qreal right = textLine.cursorToX(at + 1);
        const QRectF box(origin.x() + left + 1, origin.y() + 2, right - left - 2, height - 4);
        painter.drawRoundedRect(box, 2, 2);
        painter.drawText(box, Qt::AlignCenter, label);
    }
    painter.restore();
}

} // namespace quillorn::detail
