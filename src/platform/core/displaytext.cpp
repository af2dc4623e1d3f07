#include "platform/core/displaytext.h"

#include <QByteArray>

namespace quillorn {

QString displayText(const std::filesystem::path &path)
{
    // QString::fromUtf8 replaces every invalid sequence with U+FFFD.
    const std::string &bytes = path.native();
    return QString::fromUtf8(bytes.data(), static_cast<qsizetype>(bytes.size()));
}

QString displayName(const std::filesystem::path &path)
{
    return displayText(path.filename());
}

std::filesystem::path pathFromText(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    return std::filesystem::path(std::string(bytes.constData(), static_cast<std::size_t>(bytes.size())));
}

} // namespace quillorn
