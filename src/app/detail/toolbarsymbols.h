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

// The symbol in `colour`, and in `disabled` on a disabled button.
QIcon toolbarIcon(ToolbarSymbol symbol, const QColor &colour, const QColor &disabled, int size = 14);

} // namespace quillorn::detail
