#include "app/detail/glyphs.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

#include <cmath>
#include <numbers>

namespace quillorn::detail {

namespace {

// Shapes are drawn in a 16 × 16 box and scaled into the target rectangle.
QPainterPath folderPath()
{
    QPainterPath path;
    path.moveTo(1.5, 4);
    path.lineTo(1.5, 3);
    path.quadTo(1.5, 2, 2.5, 2);
    path.lineTo(6, 2);
    path.lineTo(7.5, 3.5);
    path.lineTo(13.5, 3.5);
    path.quadTo(14.5, 3.5, 14.5, 4.5);
    path.lineTo(14.5, 12.5);
    path.quadTo(14.5, 13.5, 13.5, 13.5);
    path.lineTo(2.5, 13.5);
    path.quadTo(1.5, 13.5, 1.5, 12.5);
    path.closeSubpath();
    return path;
}

QPainterPath starPath()
{
    QPainterPath path;
    for (int i = 0; i < 10; ++i) {
        const double radius = (i % 2 == 0) ? 6.8 : 2.9;
        const double angle = -std::numbers::pi / 2 + i * std::numbers::pi / 5;
        const QPointF point(8 + radius * std::cos(angle), 8.6 + radius * std::sin(angle));
        if (i == 0)
            path.moveTo(point);
        else
            path.lineTo(point);
    }
    path.closeSubpath();
    return path;
}

void paintDoc(QPainter &p)
{
    QPainterPath page;
    page.moveTo(3.5, 1.5);
    page.lineTo(9.5, 1.5);
    page.lineTo(12.5, 4.5);
    page.lineTo(12.5, 14.5);
    page.lineTo(3.5, 14.5);
    page.closeSubpath();
    p.drawPath(page);
    p.drawPolyline(QPolygonF({QPointF(9.5, 1.5), QPointF(9.5, 4.5), QPointF(12.5, 4.5)}));
}

void paintEye(QPainter &p, const QColor &colour)
{
    QPainterPath lid;
    lid.moveTo(1, 8);
    lid.quadTo(8, 0.5, 15, 8);
    lid.quadTo(8, 15.5, 1, 8);
    p.drawPath(lid);
    p.setBrush(colour);
    p.drawEllipse(QPointF(8, 8), 2.4, 2.4);
}

void paintShape(QPainter &p, Glyph glyph, const QColor &colour)
{
    QPen pen(colour, 1.3, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    p.setPen(pen);
    p.setBrush(Qt::NoBrush);
    switch (glyph) {
    case Glyph::folderFill:
        p.setBrush(colour);
        p.drawPath(folderPath());
        break;
    case Glyph::doc:
        paintDoc(p);
        break;
    case Glyph::star:
        p.drawPath(starPath());
        break;
    case Glyph::externalDrive:
        p.drawRoundedRect(QRectF(1.5, 4.5, 13, 7), 2, 2);
        p.setBrush(colour);
        p.drawEllipse(QPointF(11.5, 8), 0.9, 0.9);
        break;
    case Glyph::eye:
        paintEye(p, colour);
        break;
    case Glyph::arrowUp:
        p.drawLine(QPointF(8, 14), QPointF(8, 2.5));
        p.drawPolyline(QPolygonF({QPointF(3.5, 7), QPointF(8, 2.5), QPointF(12.5, 7)}));
        break;
    case Glyph::plus:
        p.drawLine(QPointF(8, 3), QPointF(8, 13));
        p.drawLine(QPointF(3, 8), QPointF(13, 8));
        break;
    case Glyph::xmark:
        p.drawLine(QPointF(4, 4), QPointF(12, 12));
        p.drawLine(QPointF(12, 4), QPointF(4, 12));
        break;
    case Glyph::exclamationFolder:
        p.drawPath(folderPath());
        p.drawLine(QPointF(8, 6), QPointF(8, 9.5));
        p.setBrush(colour);
        p.drawEllipse(QPointF(8, 11.6), 0.8, 0.8);
        break;
    }
}

} // namespace

void paintGlyph(QPainter &painter, Glyph glyph, const QRectF &rect, const QColor &colour)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const double side = std::min(rect.width(), rect.height());
    painter.translate(rect.center().x() - side / 2, rect.center().y() - side / 2);
    painter.scale(side / 16.0, side / 16.0);
    paintShape(painter, glyph, colour);
    painter.restore();
}

QIcon glyphIcon(Glyph glyph, const QColor &colour, int size, const QColor &disabled)
{
    QIcon icon;
    for (int scale : {1, 2}) {
        for (const QIcon::Mode mode : {QIcon::Normal, QIcon::Disabled}) {
            const QColor &ink = mode == QIcon::Disabled ? disabled : colour;
            if (!ink.isValid())
                continue;
            QPixmap pixmap(size * scale, size * scale);
            pixmap.fill(Qt::transparent);
            {
                QPainter painter(&pixmap);
                paintGlyph(painter, glyph, QRectF(0, 0, size * scale, size * scale), ink);
            }
            pixmap.setDevicePixelRatio(scale);
            icon.addPixmap(pixmap, mode);
        }
    }
    return icon;
}

} // namespace quillorn::detail
