#include "platform/desktop/detail/quicklookcontent.h"

#include "platform/core/displaytext.h"
#include "platform/core/numericdate.h"
#include "platform/desktop/bytecount.h"
#include "platform/posix/posixerror.h"

#include <QBuffer>
#include <QFile>
#include <QImageReader>
#include <QLocale>
#include <QMimeDatabase>
#include <QStringDecoder>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillorn::detail {

namespace {

class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

QByteArray readPrefix(int fd, std::int64_t limit, const std::filesystem::path &item)
{
    QByteArray bytes(static_cast<qsizetype>(limit), Qt::Uninitialized);
    qsizetype filled = 0;
    while (filled < bytes.size()) {
        const ssize_t count = ::read(fd, bytes.data() + filled, static_cast<size_t>(bytes.size() - filled));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throwPosixError(item);
        if (count == 0)
            break;
        filled += count;
    }
    bytes.truncate(filled);
    return bytes;
}

QString kindOf(const struct stat &info, const QByteArray &prefix, const QString &name)
{
    if (S_ISDIR(info.st_mode))
        return QStringLiteral("Folder");
    if (S_ISFIFO(info.st_mode))
        return QStringLiteral("Named pipe");
    if (S_ISSOCK(info.st_mode))
        return QStringLiteral("Socket");
    if (S_ISCHR(info.st_mode) || S_ISBLK(info.st_mode))
        return QStringLiteral("Device");
    return QMimeDatabase().mimeTypeForFileNameAndData(name, prefix).comment();
}

QuickLookContent facts(const std::filesystem::path &item, const struct stat &info, const QByteArray &prefix,
                       QString title)
{
    QuickLookContent content;
    content.kind = QuickLookContent::Kind::facts;
    content.title = title;
    const auto modified = std::chrono::system_clock::time_point(std::chrono::seconds(info.st_mtim.tv_sec));
    QStringList lines{
        QStringLiteral("Name: ") + title,
        QStringLiteral("Kind: ") + kindOf(info, prefix, title),
        QStringLiteral("Modified: ") + formatNumericDate(modified),
        QStringLiteral("Where: ") + displayText(item.parent_path()),
    };
    if (!S_ISDIR(info.st_mode))
        lines.insert(1, QStringLiteral("Size: %1 (%2 bytes)")
                            .arg(formattedByteCount(info.st_size), QLocale().toString(qint64(info.st_size))));
    content.text = lines.join('\n');
    return content;
}

bool looksLikeText(const QByteArray &prefix)
{
    return !prefix.contains('\0');
}

} // namespace

QuickLookContent QuickLookContent::load(const std::filesystem::path &item)
{
    struct stat info {};
    if (::stat(item.c_str(), &info) != 0)
        throwPosixError(item);
    const QString title = displayName(item);
    if (S_ISDIR(info.st_mode)) {
        // A folder we may not list cannot be previewed either.
        if (::access(item.c_str(), R_OK | X_OK) != 0)
            throwPosixError(item);
        return facts(item, info, {}, title);
    }
    // Pipes, sockets and devices are described, never opened: reading one may block forever.
    if (!S_ISREG(info.st_mode))
        return facts(item, info, {}, title);

    Descriptor fd(::open(item.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0)
        throwPosixError(item);
    const QByteArray prefix = readPrefix(fd.get(), textLimit, item);

    QFile file;
    if (::lseek(fd.get(), 0, SEEK_SET) == 0 && file.open(fd.get(), QIODevice::ReadOnly)) {
        QImageReader reader(&file);
        reader.setAutoTransform(true);
        if (reader.canRead()) {
            const QSize size = reader.size();
            if (size.isValid() && (size.width() > largestImageSide || size.height() > largestImageSide))
                reader.setScaledSize(size.scaled(largestImageSide, largestImageSide, Qt::KeepAspectRatio));
            QImage image = reader.read();
            if (!image.isNull()) {
                QuickLookContent content;
                content.kind = Kind::image;
                content.title = title;
                content.image = std::move(image);
                return content;
            }
        }
    }
    if (looksLikeText(prefix)) {
        QuickLookContent content;
        content.kind = Kind::text;
        content.title = title;
        content.truncated = info.st_size > prefix.size();
        // A character cut by the limit stays in the decoder's state instead of
        // showing as a replacement mark.
        QStringDecoder decoder(QStringDecoder::Utf8);
        content.text = decoder.decode(prefix);
        return content;
    }
    return facts(item, info, prefix, title);
}

} // namespace quillorn::detail
