#include "app/detail/toolbarsymbols.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

namespace quillorn::detail {

namespace {

// Every symbol is drawn in a 16 × 16 box.
void paint(QPainter &p, ToolbarSymbol symbol)
{
    switch (symbol) {
    case ToolbarSymbol::magnifyingGlass:
        p.drawEllipse(QRectF(2, 2, 8.5, 8.5));
        p.drawLine(QPointF(9.5, 9.5), QPointF(14, 14));
        break;
    case ToolbarSymbol::arrowsLeftRight:
        p.drawLine(QPointF(2, 5.5), QPointF(14, 5.5));
        p.drawPolyline(QPolygonF({QPointF(11, 2.5), QPointF(14, 5.5), QPointF(11, 8.5)}));
        p.drawLine(QPointF(2, 10.5), QPointF(14, 10.5));
        p.drawPolyline(QPolygonF({QPointF(5, 7.5), QPointF(2, 10.5), QPointF(5, 13.5)}));
        break;
    case ToolbarSymbol::infoCircle:
        p.drawEllipse(QRectF(1.5, 1.5, 13, 13));
        p.drawLine(QPointF(8, 7), QPointF(8, 11.5));
        p.drawPoint(QPointF(8, 4.8));
        break;
    case ToolbarSymbol::openApp:
        p.drawRoundedRect(QRectF(2, 4, 10, 10), 2, 2);
        p.drawLine(QPointF(7, 9), QPointF(14, 2));
        p.drawPolyline(QPolygonF({QPointF(9.5, 2), QPointF(14, 2), QPointF(14, 6.5)}));
        break;
    case ToolbarSymbol::network:
        p.drawEllipse(QRectF(1.5, 1.5, 13, 13));
        p.drawEllipse(QRectF(5, 1.5, 6, 13));
        p.drawLine(QPointF(1.5, 8), QPointF(14.5, 8));
        break;
    case ToolbarSymbol::docOnDoc:
        p.drawRoundedRect(QRectF(5, 1.5, 9, 11), 1.5, 1.5);
        p.drawPolyline(QPolygonF(
            {QPointF(3.5, 4), QPointF(2, 4), QPointF(2, 14.5), QPointF(11, 14.5), QPointF(11, 13)}));
        break;
    case ToolbarSymbol::docOnClipboard:
        p.drawRoundedRect(QRectF(2.5, 3, 11, 12), 1.5, 1.5);
        p.drawRect(QRectF(5.5, 1.5, 5, 3));
        p.drawLine(QPointF(5, 8), QPointF(11, 8));
        p.drawLine(QPointF(5, 11), QPointF(11, 11));
        break;
    case ToolbarSymbol::plus:
        p.drawLine(QPointF(8, 2.5), QPointF(8, 13.5));
        p.drawLine(QPointF(2.5, 8), QPointF(13.5, 8));
        break;
    case ToolbarSymbol::xmark:
        p.drawLine(QPointF(3.5, 3.5), QPointF(12.5, 12.5));
        p.drawLine(QPointF(12.5, 3.5), QPointF(3.5, 12.5));
        break;
    }
}

} // namespace

QIcon toolbarIcon(ToolbarSymbol symbol, const QColor &colour, const QColor &disabled, int size)
{
    QIcon icon;
    for (const qreal scale : {1.0, 2.0}) {
        for (const QIcon::Mode mode : {QIcon::Normal, QIcon::Disabled}) {
            QPixmap pixmap(int(size * scale), int(size * scale));
            pixmap.fill(Qt::transparent);
            QPainter painter(&pixmap);
            painter.setRenderHint(QPainter::Antialiasing);
            painter.scale(size * scale / 16.0, size * scale / 16.0);
            QPen pen(mode == QIcon::Disabled ? disabled : colour, 1.5, Qt::SolidLine, Qt::RoundCap,
                     Qt::RoundJoin);
            painter.setPen(pen);
            painter.setBrush(Qt::NoBrush);
            paint(painter, symbol);
            painter.end();
            pixmap.setDevicePixelRatio(scale);
            icon.addPixmap(pixmap, mode);
        }
    }
    return icon;
}

} // namespace quillorn::detail
