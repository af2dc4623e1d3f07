#include "platform/desktop/latinkey.h"

#include <array>
#include <string_view>

namespace quillorn {

std::optional<int> latinKeyAt(int key, quint32 nativeScanCode)
{
    // Characters of the Latin-1 block are Latin already; the toolkit's own keys
    // (arrows, F1…) start at 0x01000000.
    if (key <= 0xff || key >= 0x01000000)
        return std::nullopt;
    // The rows of a standard keyboard by keycode, as the US layout names them.
    struct Row {
        quint32 first;
        std::string_view keys;
    };
    static constexpr std::array rows{Row{10, "1234567890-="}, Row{24, "QWERTYUIOP[]"},
                                     Row{38, "ASDFGHJKL;'`"}, Row{51, "\\ZXCVBNM,./"}};
    for (const Row &row : rows)
        if (nativeScanCode >= row.first && nativeScanCode < row.first + row.keys.size())
            return int(static_cast<unsigned char>(row.keys[nativeScanCode - row.first]));
    return std::nullopt;
}

} // namespace quillorn
