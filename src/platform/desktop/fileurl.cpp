#include "platform/desktop/fileurl.h"

#include <QSysInfo>

namespace quillorn {

QByteArray encodedFileUrl(const std::filesystem::path &path)
{
    const QByteArray bytes = QByteArray::fromStdString(path.string());
    return QByteArrayLiteral("file://") + bytes.toPercentEncoding("/");
}

QUrl fileUrl(const std::filesystem::path &path)
{
    return QUrl::fromEncoded(encodedFileUrl(path), QUrl::StrictMode);
}

std::optional<std::filesystem::path> pathFromFileUrl(const QByteArray &encoded)
{
    const QByteArray url = encoded.trimmed();
    if (!url.toLower().startsWith("file:"))
        return std::nullopt;
    QByteArray rest = url.mid(5);
    if (rest.startsWith("//")) {
        // file://host/path: only this machine's files are ours to open.
        const qsizetype slash = rest.indexOf('/', 2);
        if (slash < 0)
            return std::nullopt;
        const QByteArray host = QByteArray::fromPercentEncoding(rest.mid(2, slash - 2)).toLower();
        if (!host.isEmpty() && host != "localhost" && host != QSysInfo::machineHostName().toUtf8().toLower())
            return std::nullopt;
        rest = rest.mid(slash);
    }
    const QByteArray bytes = QByteArray::fromPercentEncoding(rest);
    if (!bytes.startsWith('/') || bytes.contains('\0'))
        return std::nullopt;
    std::filesystem::path path = std::filesystem::path(bytes.toStdString()).lexically_normal();
    // A folder written with a trailing slash is still the folder itself.
    if (!path.has_filename() && path != path.root_path())
        path = path.parent_path();
    return path;
}

} // namespace quillorn
