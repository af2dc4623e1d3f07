#include "app/detail/panerowdelegate.h"

#include "app/detail/glyphs.h"
#include "app/detail/panelayout.h"
#include "app/detail/panetablemodel.h"

#include <QPainter>

namespace quillorn::detail {

PaneRowDelegate::PaneRowDelegate(QObject *parent)
    : QStyledItemDelegate(parent), m_colours(colours(CommanderThemeKey::defaultValue)),
      m_font(monospacedFont())
{
}

void PaneRowDelegate::setColours(const CommanderThemeColours &colours)
{
    m_colours = colours;
    m_icons.clear();
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
    painter->restore();
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
