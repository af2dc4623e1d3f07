#include "model/toolsheet.h"

#include <array>

namespace quillorn {

QString ToolSheet::id() const
{
    static const std::array<const char *, std::variant_size_v<Case>> names{
        "transfer", "search", "compare", "editor", "info", "archive", "connect"};
    return QString::fromLatin1(names[value.index()]);
}

} // namespace quillorn
