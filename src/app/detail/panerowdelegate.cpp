#include "app/detail/panerowdelegate.h"

#include "app/detail/glyphs.h"
#include "app/detail/panelayout.h"
#include "app/detail/panetablemodel.h"

#include <QPainter>

#include <algorithm>

namespace quillorn::detail {

PaneRowDelegate::PaneRowDelegate(QObject *parent)
    : QStyledItemDelegate(parent), m_colours(colours(CommanderThemeKey::defaultValue)),
      m_font(monospacedFont())
{
}

namespace {

// Thick enough to be seen at a glance, thin enough to stay clear of the text.
constexpr int kFrameWidth = 2;
// The dots of the inactive pane's frame: kDotLength pixels on, as many off.
constexpr int kDotLength = 2;

// A frame edge, solid or dotted. The dots are placed by the viewport's
// coordinates, so the pattern runs on unbroken from one cell to the next.
void fillEdge(QPainter &painter, const QRect &edge, const QColor &colour, bool dotted)
{
    if (!dotted) {
        painter.fillRect(edge, colour);
        return;
    }
    const bool across = edge.width() >= edge.height();
    const int from = across ? edge.left() : edge.top(), to = across ? edge.right() : edge.bottom();
    for (int at = from - from % (2 * kDotLength); at <= to; at += 2 * kDotLength) {
        const int start = std::max(at, from), end = std::min(at + kDotLength - 1, to);
        if (start > end)
            continue;
        painter.fillRect(across ? QRect(start, edge.top(), end - start + 1, edge.height())
                                : QRect(edge.left(), start, edge.width(), end - start + 1),
                         colour);
    }
}

} // namespace

void PaneRowDelegate::setColours(const CommanderThemeColours &colours)
{
    m_colours = colours;
    m_icons.clear();
}

void PaneRowDelegate::setActive(bool active)
{
    m_active = active;
}

// Every row draws one of two symbols: paint each once per colour and scale.
const QPixmap &PaneRowDelegate::rowIcon(bool directory, int side, qreal scale) const
{
    const QString key = QStringLiteral("%1/%2/%3").arg(directory).arg(side).arg(scale);
    auto found = m_icons.find(key);
    if (found == m_icons.end()) {
        const QIcon icon = directory ? glyphIcon(Glyph::folderFill, m_colours.accent, side)
                                     : glyphIcon(Glyph::doc, secondaryTextColour(m_colours), side);
        found = m_icons.insert(key, icon.pixmap(QSize(side, side), scale));
    }
    return found.value();
}

QColor PaneRowDelegate::rowBackground(const QModelIndex &index) const
{
    if (index.data(PaneTableModel::taggedRole).toBool())
        return m_colours.selection;
    if (index.data(PaneTableModel::cursorRole).toBool()) {
        QColor cursor = m_colours.selection;
        cursor.setAlphaF(0.45f);
        return cursor;
    }
    return index.row() % 2 == 0 ? m_colours.row : m_colours.alternateRow;
}

void PaneRowDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                            const QModelIndex &index) const
{
    const QRect cell = option.rect;
    painter->save();
    // The cursor colour is translucent: lay it over the plain row colour.
    painter->fillRect(cell, index.row() % 2 == 0 ? m_colours.row : m_colours.alternateRow);
    painter->fillRect(cell, rowBackground(index));
    QColor separator = m_colours.border;
    separator.setAlphaF(0.45f);
    painter->setPen(separator);
    painter->drawLine(cell.bottomLeft(), cell.bottomRight());

    painter->setFont(m_font);
    // Cut items stay where they are until pasted: their text and icon fade.
    if (index.data(PaneTableModel::cutRole).toBool())
        painter->setOpacity(0.5);
    if (index.column() == PaneTableModel::nameColumn) {
        paintName(*painter, cell, index);
    } else {
        const QRect text = cell.adjusted(0, 0, -kPartSpacing, 0);
        // On the full selection colour only primary text reads.
        const bool tagged = index.data(PaneTableModel::taggedRole).toBool();
        painter->setPen(tagged ? primaryTextColour(m_colours) : secondaryTextColour(m_colours));
        const QString value = index.data(Qt::DisplayRole).toString();
        painter->drawText(text, Qt::AlignRight | Qt::AlignVCenter,
                          painter->fontMetrics().elidedText(value, Qt::ElideLeft, text.width()));
    }
    painter->setOpacity(1.0);
    if (index.data(PaneTableModel::cursorRole).toBool())
        paintCursorFrame(*painter, cell, index);
    painter->restore();
}

// The fill alone hardly differs from the rows around it and not at all on a
// tagged row: the frame is what shows where the cursor is.
void PaneRowDelegate::paintCursorFrame(QPainter &painter, const QRect &cell, const QModelIndex &index) const
{
    const QColor colour = cursorFrameColour(m_colours, m_active);
    const bool dotted = !m_active;
    fillEdge(painter, QRect(cell.left(), cell.top(), cell.width(), kFrameWidth), colour, dotted);
    fillEdge(painter, QRect(cell.left(), cell.bottom() - kFrameWidth + 1, cell.width(), kFrameWidth), colour,
             dotted);
    const QRect sides(cell.left(), cell.top() + kFrameWidth, cell.width(), cell.height() - 2 * kFrameWidth);
    if (index.column() == 0)
        fillEdge(painter, QRect(sides.left(), sides.top(), kFrameWidth, sides.height()), colour, dotted);
    if (index.column() == index.model()->columnCount() - 1)
        fillEdge(painter, QRect(sides.right() - kFrameWidth + 1, sides.top(), kFrameWidth, sides.height()),
                 colour, dotted);
}

void PaneRowDelegate::paintName(QPainter &painter, const QRect &cell, const QModelIndex &index) const
{
    const bool directory = index.data(PaneTableModel::directoryRole).toBool();
    const QRect icon(cell.left() + kPartSpacing, cell.top(), kIconWidth, cell.height());
    const int glyphSide = std::min(14, cell.height() - 4);
    const QRect glyph(icon.center().x() - glyphSide / 2 + 1, icon.center().y() - glyphSide / 2 + 1, glyphSide,
                      glyphSide);
    painter.drawPixmap(glyph, rowIcon(directory, glyphSide, painter.device()->devicePixelRatioF()));
    const QRect text(icon.right() + 1 + kPartSpacing, cell.top(), cell.right() - icon.right() - kPartSpacing,
                     cell.height());
    painter.setPen(primaryTextColour(m_colours));
    // A line feed in a name is shown as a visible symbol so the row stays one line.
    QString name = index.data(Qt::DisplayRole).toString();
    name.replace(u'\n', QChar(0x2424)).replace(u'\r', QChar(0x240D));
    painter.drawText(text, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                     painter.fontMetrics().elidedText(name, Qt::ElideMiddle, text.width()));
}

QSize PaneRowDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QSize size = QStyledItemDelegate::sizeHint(option, index);
    size.setHeight(QFontMetrics(m_font).height() + 8);
    return size;
}

} // namespace quillorn::detail
