#include "app/detail/paneinput.h"

#include "model/panemodel.h"
#include "platform/core/displaytext.h"
#include "platform/desktop/fileurl.h"

#include <QMimeData>
#include <QUrl>

#include <pwd.h>

namespace quillorn::detail {

namespace fs = std::filesystem;

void applyRowClick(PaneModel &pane, const fs::path &url, Qt::KeyboardModifiers modifiers)
{
    if (modifiers & Qt::ControlModifier) {
        pane.setCursor(url);
        auto selection = pane.selection();
        if (!selection.erase(url))
            selection.insert(url);
        pane.setSelection(std::move(selection));
        return;
    }
    if (modifiers & Qt::ShiftModifier) {
        const auto anchor = pane.cursor() ? pane.visibleIndexOf(*pane.cursor()) : std::nullopt;
        const auto target = pane.visibleIndexOf(url);
        if (anchor && target) {
            auto selection = pane.selection();
            for (int i = std::min(*anchor, *target); i <= std::max(*anchor, *target); ++i)
                selection.insert(pane.visibleAt(i).url());
            pane.setSelection(std::move(selection));
            pane.setCursor(url);
            return;
        }
    }
    pane.setSelection({});
    pane.setCursor(url);
}

std::unique_ptr<QMimeData> dragData(const std::vector<fs::path> &items)
{
    QList<QUrl> urls;
    urls.reserve(static_cast<qsizetype>(items.size()));
    for (const fs::path &item : items)
        urls.append(fileUrl(item));
    auto mime = std::make_unique<QMimeData>();
    mime->setUrls(urls);
    return mime;
}

std::vector<fs::path> droppedFiles(const QMimeData &mime)
{
    std::vector<fs::path> files;
    for (const QUrl &url : mime.urls())
        if (auto path = pathFromFileUrl(url.toEncoded()))
            files.push_back(std::move(*path));
    return files;
}

namespace {

// "~" alone or "~/..." is the current user; "~name/..." is that user's home.
std::optional<fs::path> homeOfTildePrefix(const QString &prefix, const fs::path &home)
{
    if (prefix.isEmpty())
        return home;
    const QByteArray name = prefix.toUtf8();
    if (const passwd *entry = ::getpwnam(name.constData()); entry && entry->pw_dir)
        return fs::path(entry->pw_dir);
    return std::nullopt;
}

} // namespace

fs::path typedFolder(const QString &text, const fs::path &home, const fs::path &base)
{
    // The field shows the folder's name with U+FFFD for bytes that are not
    // UTF-8; text that still starts with that display keeps the real bytes.
    const QString shown = displayText(base);
    if (text == shown)
        return base;
    if (base.is_absolute() && text.startsWith(shown + u'/'))
        return base / pathFromText(text.mid(shown.size() + 1));
    fs::path folder = pathFromText(text);
    if (text.startsWith(u'~')) {
        const qsizetype slash = text.indexOf(u'/');
        const QString prefix = text.mid(1, slash < 0 ? -1 : slash - 1);
        if (const auto prefixHome = homeOfTildePrefix(prefix, home)) {
            const QString rest = slash < 0 ? QString() : text.mid(slash + 1);
            folder = rest.isEmpty() ? *prefixHome : *prefixHome / pathFromText(rest);
        }
    }
    if (folder.is_relative())
        folder = base / folder;
    return folder;
}

} // namespace quillorn::detail
