#pragma once

#include <QColor>
#include <QIcon>

namespace quillorn::detail {

// The tool bar's symbols, drawn as line art in any colour.
enum class ToolbarSymbol {
    magnifyingGlass,
    arrowsLeftRight,
    infoCircle,
    openApp,
    network,
    docOnDoc,
    docOnClipboard,
    plus,
    xmark
};

QIcon toolbarIcon(ToolbarSymbol symbol, const QColor &colour, int size = 14);

} // namespace quillorn::detail
