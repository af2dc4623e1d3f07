#include "services/textdocument.h"

#include "operations/commandererror.h"
#include "platform/posix/hugepages.h"
#include "services/detail/journaledstaging.h"

#include <QStringDecoder>

#include <algorithm>

namespace quillorn {

TextDocument TextDocument::load(const Path &url)
{
    const std::optional<std::string> bytes = readRegularFile(url, limit);
    if (!bytes)
        throw CommanderError("The editor supports regular UTF-8 files up to 8 MB. Open other files in their "
                             "associated application.");
    if (bytes->find('\0') != std::string::npos)
        throw CommanderError("This is not a UTF-8 text file.");
    // Both copies of a text of megabytes are made in buffers advised to use
    // huge pages, so filling them costs few page faults.
    QByteArray original(qsizetype(bytes->size()), Qt::Uninitialized);
    adviseHugePages(original.data(), std::size_t(original.size()));
    std::copy(bytes->begin(), bytes->end(), original.begin());
    // A byte order mark is text like any other: kept, so it is written back.
    QStringDecoder decoder(QStringDecoder::Utf8,
                           QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom);
    QString text(decoder.requiredSpace(original.size()), Qt::Uninitialized);
    adviseHugePages(text.data(), std::size_t(text.size()) * sizeof(QChar));
    text.truncate(decoder.appendToBuffer(text.data(), original) - text.constData());
    if (decoder.hasError())
        throw CommanderError("This is not a UTF-8 text file.");
    return {url, std::move(original), std::move(text)};
}

TextDocument::SaveMethod TextDocument::save()
{
    const QByteArray bytes = text.toUtf8();
    const ContentsWrite method =
        replaceContents(url, std::string_view(original.constData(), std::size_t(original.size())),
                        std::string_view(bytes.constData(), std::size_t(bytes.size())),
                        detail::journaledStaging(), detail::journaledBackups());
    if (method == ContentsWrite::changedOnDisk)
        throw CommanderError("This file changed on disk. Save was stopped to preserve the external changes.");
    original = bytes;
    return method;
}

} // namespace quillorn
