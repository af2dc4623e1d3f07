#include "model/toolsheet.h"

namespace quillorn {

QString ToolSheet::id() const
{
    return std::visit(
        [](const auto &sheet) {
            return QString::fromLatin1(sheet.id.data(), static_cast<qsizetype>(sheet.id.size()));
        },
        value);
}

} // namespace quillorn
