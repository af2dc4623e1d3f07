#include "platform/desktop/mimeapplications.h"

#include "platform/core/displaytext.h"

#include <QMimeDatabase>
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

// GIO names a structure member "signals", which Qt defines as a keyword.
#pragma push_macro("signals")
#undef signals
#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>
#pragma pop_macro("signals")

namespace quillorn {

namespace fs = std::filesystem;

namespace {

// What the name leaves open is settled by as many bytes as the MIME database
// looks at for most types.
constexpr std::size_t kSniffedBytes = 4096;

QByteArray firstBytes(const fs::path &file)
{
    // O_NONBLOCK: an item that turned into a FIFO since the stat must not hang the window.
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (descriptor < 0)
        return {};
    QByteArray bytes(kSniffedBytes, Qt::Uninitialized);
    struct stat info {};
    ssize_t count = -1;
    if (::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode)) {
        do
            count = ::read(descriptor, bytes.data(), kSniffedBytes);
        while (count < 0 && errno == EINTR);
    }
    ::close(descriptor);
    bytes.resize(std::max<qsizetype>(count, 0));
    return bytes;
}

struct ObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <typename T> using GObjectPtr = std::unique_ptr<T, ObjectUnref>;

struct AppInfoList {
    GList *list;
    ~AppInfoList() { g_list_free_full(list, g_object_unref); }
};

QString iconOf(GAppInfo *info)
{
    GIcon *icon = g_app_info_get_icon(info);
    if (icon && G_IS_THEMED_ICON(icon)) {
        const gchar *const *names = g_themed_icon_get_names(G_THEMED_ICON(icon));
        return names && names[0] ? QString::fromUtf8(names[0]) : QString();
    }
    if (icon && G_IS_FILE_ICON(icon)) {
        std::unique_ptr<char, decltype(&g_free)> path(
            g_file_get_path(g_file_icon_get_file(G_FILE_ICON(icon))), &g_free);
        return path ? displayText(fs::path(path.get())) : QString();
    }
    return {};
}

// Adds the application unless it is there already; applications made other
// than from a .desktop file have no id and are left out.
void append(std::vector<DesktopApplication> &applications, GAppInfo *info)
{
    const char *id = info ? g_app_info_get_id(info) : nullptr;
    if (!id)
        return;
    DesktopApplication application{QString::fromUtf8(id), QString::fromUtf8(g_app_info_get_name(info)),
                                   iconOf(info)};
    const bool listed = std::any_of(applications.begin(), applications.end(),
                                    [&](const DesktopApplication &a) { return a.id == application.id; });
    if (!listed)
        applications.push_back(std::move(application));
}

QString inodeType(mode_t mode)
{
    if (S_ISDIR(mode))
        return QStringLiteral("inode/directory");
    if (S_ISFIFO(mode))
        return QStringLiteral("inode/fifo");
    if (S_ISSOCK(mode))
        return QStringLiteral("inode/socket");
    if (S_ISCHR(mode))
        return QStringLiteral("inode/chardevice");
    if (S_ISBLK(mode))
        return QStringLiteral("inode/blockdevice");
    return {};
}

} // namespace

QString mimeTypeOf(const fs::path &item)
{
    struct stat info {};
    const bool exists = ::stat(item.c_str(), &info) == 0;
    if (exists)
        if (const QString special = inodeType(info.st_mode); !special.isEmpty())
            return special;
    const QMimeDatabase database;
    const QString name = displayName(item);
    const QList<QMimeType> byName = database.mimeTypesForFileName(name);
    if (byName.size() == 1 || (!byName.isEmpty() && !exists))
        return byName.front().name();
    if (!exists)
        return database.mimeTypeForName(QStringLiteral("application/octet-stream")).name();
    return database.mimeTypeForFileNameAndData(name, firstBytes(item)).name();
}

std::vector<DesktopApplication> applicationsFor(const QString &mimeType)
{
    const QByteArray type = mimeType.toUtf8();
    std::vector<DesktopApplication> applications;
    const GObjectPtr<GAppInfo> preferred(g_app_info_get_default_for_type(type.constData(), FALSE));
    append(applications, preferred.get());
    const AppInfoList all{g_app_info_get_all_for_type(type.constData())};
    for (GList *link = all.list; link; link = link->next)
        append(applications, G_APP_INFO(link->data));
    return applications;
}

std::vector<DesktopApplication> allApplications()
{
    std::vector<DesktopApplication> applications;
    const AppInfoList all{g_app_info_get_all()};
    for (GList *link = all.list; link; link = link->next)
        if (g_app_info_should_show(G_APP_INFO(link->data)))
            append(applications, G_APP_INFO(link->data));
    std::stable_sort(applications.begin(), applications.end(),
                     [](const DesktopApplication &a, const DesktopApplication &b) {
                         return QString::localeAwareCompare(a.name, b.name) < 0;
                     });
    return applications;
}

std::optional<QString> launchApplication(const QString &applicationId, const std::vector<fs::path> &items)
{
    const GObjectPtr<GDesktopAppInfo> application(g_desktop_app_info_new(applicationId.toUtf8().constData()));
    if (!application)
        return QStringLiteral("The application ‘%1’ is not installed.").arg(applicationId);
    // GFiles made from the paths' bytes: the application gets those bytes for
    // %f and %F, and URLs that percent-encode them for %u and %U.
    AppInfoList files{nullptr};
    for (auto item = items.rbegin(); item != items.rend(); ++item)
        files.list = g_list_prepend(files.list, g_file_new_for_path(item->c_str()));
    GError *error = nullptr;
    if (g_app_info_launch(G_APP_INFO(application.get()), files.list, nullptr, &error))
        return std::nullopt;
    const QString name = QString::fromUtf8(g_app_info_get_name(G_APP_INFO(application.get())));
    const QString reason = error ? QString::fromUtf8(error->message) : QString();
    g_clear_error(&error);
    return QStringLiteral("‘%1’ could not be started: %2").arg(name, reason);
}

} // namespace quillorn
