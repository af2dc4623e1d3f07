#include "platform/desktop/fileclipboard.h"

#include "platform/core/displaytext.h"
#include "platform/desktop/fileurl.h"

#include <QClipboard>
#include <QGuiApplication>

namespace quillorn {

namespace {

std::vector<std::filesystem::path> parseUriLines(const QByteArray &data, bool gnomeForm)
{
    std::vector<std::filesystem::path> items;
    QList<QByteArray> lines = data.split('\n');
    // GNOME's form starts with the operation; the URIs follow.
    if (gnomeForm && !lines.isEmpty())
        lines.removeFirst();
    for (const QByteArray &raw : lines) {
        const QByteArray line = raw.trimmed();
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        if (auto path = pathFromFileUrl(line))
            items.push_back(std::move(*path));
    }
    return items;
}

} // namespace

std::unique_ptr<QMimeData> FileClipboard::mimeData(const std::vector<Path> &items, bool cut)
{
    QByteArray uriList;
    QByteArray gnome = cut ? "cut" : "copy";
    QStringList text;
    for (const Path &item : items) {
        const QByteArray url = encodedFileUrl(item);
        uriList += url + "\r\n";
        gnome += '\n' + url;
        text << displayText(item);
    }
    auto data = std::make_unique<QMimeData>();
    data->setData(uriListType, uriList);
    data->setData(gnomeType, gnome);
    data->setText(text.join('\n'));
    if (cut)
        data->setData(kdeCutType, "1");
    return data;
}

std::vector<FileClipboard::Path> FileClipboard::items(const QMimeData &data)
{
    if (data.hasFormat(uriListType))
        return parseUriLines(data.data(uriListType), false);
    if (data.hasFormat(gnomeType))
        return parseUriLines(data.data(gnomeType), true);
    if (data.hasFormat(kdeUriListType))
        return parseUriLines(data.data(kdeUriListType), false);
    return {};
}

bool FileClipboard::isCut(const QMimeData &data)
{
    if (data.hasFormat(gnomeType))
        return data.data(gnomeType).split('\n').constFirst().trimmed() == "cut";
    return data.data(kdeCutType).trimmed() == "1";
}

void FileClipboard::write(const std::vector<Path> &items, bool cut)
{
    QGuiApplication::clipboard()->setMimeData(mimeData(items, cut).release());
}

bool FileClipboard::readIsCut()
{
    const QMimeData *data = QGuiApplication::clipboard()->mimeData();
    return data && isCut(*data);
}

std::vector<FileClipboard::Path> FileClipboard::read()
{
    const QMimeData *data = QGuiApplication::clipboard()->mimeData();
    return data ? items(*data) : std::vector<Path>{};
}

} // namespace quillorn
