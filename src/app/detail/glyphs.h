#pragma once

#include <QColor>
#include <QIcon>
#include <QRectF>

class QPainter;

namespace quillorn::detail {

// The pane's symbols, painted as simple vector shapes so that they take any
// theme colour and stay sharp at every scale.
enum class Glyph {
    folderFill,
    doc,
    star,
    externalDrive,
    eye,
    arrowUp,
    plus,
    xmark,
    exclamationFolder,
};

void paintGlyph(QPainter &painter, Glyph glyph, const QRectF &rect, const QColor &colour);
// The icon in `colour`; a button that is disabled shows it in `disabled` when
// one is given.
QIcon glyphIcon(Glyph glyph, const QColor &colour, int size = 16, const QColor &disabled = QColor());

} // namespace quillorn::detail
