#pragma once

#include "model/commanderthemecolours.h"

#include <QHash>
#include <QPixmap>
#include <QStyledItemDelegate>

namespace quillorn::detail {

// Paints one cell of a pane row: the row background (tagged, cursor or the
// alternating row colours), the separator, the cell's part of the row — icon
// and middle-elided name, size or "<DIR>", or the date — and, on the cursor
// row, its share of the frame that marks the cursor: solid in the active pane,
// dotted in the other.
class PaneRowDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    explicit PaneRowDelegate(QObject *parent = nullptr);

    void setColours(const CommanderThemeColours &colours);
    // Whether the pane drawn is the active one (the cursor frame's style).
    void setActive(bool active);
    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;

    // The background rule, first match wins: tagged, cursor, then even/odd row.
    QColor rowBackground(const QModelIndex &index) const;

private:
    void paintName(QPainter &painter, const QRect &cell, const QModelIndex &index) const;
    void paintCursorFrame(QPainter &painter, const QRect &cell, const QModelIndex &index) const;
    const QPixmap &rowIcon(bool directory, int side, qreal scale) const;

    CommanderThemeColours m_colours;
    bool m_active = false;
    QFont m_font;
    mutable QHash<QString, QPixmap> m_icons;
};

} // namespace quillorn::detail
