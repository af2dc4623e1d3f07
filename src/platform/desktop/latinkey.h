#pragma once

#include <QtGlobal>
#include <optional>

namespace quillorn {

// The Latin key that sits where a key of a non-Latin layout was pressed, so
// that Ctrl+Ф on a Russian layout acts as Ctrl+A, as it does in other programs.
// `key` is the toolkit's key (Qt::Key), `nativeScanCode` the key event's
// keycode (the kernel's evdev code plus 8, under X11 and Wayland alike). Nothing
// when the key is Latin already, is not a character, or its place is unknown.
std::optional<int> latinKeyAt(int key, quint32 nativeScanCode);

} // namespace quillorn
