#pragma once

#include <QMimeData>
#include <filesystem>
#include <memory>
#include <vector>

namespace quillorn {

// The clipboard of file references, in the forms Linux file managers use:
// text/uri-list (the standard one, also what KDE's Dolphin reads and writes),
// GNOME's x-special/gnome-copied-files ("copy" or "cut", then the URIs), and
// plain text with the paths for text fields and terminals. Items cut rather
// than copied carry GNOME's "cut" and KDE's application/x-kde-cutselection, so
// that Nautilus, Dolphin and Quillorn move them when they paste.
class FileClipboard {
public:
    using Path = std::filesystem::path;

    static std::unique_ptr<QMimeData> mimeData(const std::vector<Path> &items, bool cut = false);
    // The local files referenced by the data, in order; other URLs are left out.
    static std::vector<Path> items(const QMimeData &data);
    // Whether the data marks its items as cut, in GNOME's or KDE's way.
    static bool isCut(const QMimeData &data);

    // The application's clipboard (needs a QGuiApplication).
    static void write(const std::vector<Path> &items, bool cut = false);
    static std::vector<Path> read();
    static bool readIsCut();

    static inline const QString uriListType = QStringLiteral("text/uri-list");
    static inline const QString gnomeType = QStringLiteral("x-special/gnome-copied-files");
    static inline const QString kdeUriListType = QStringLiteral("application/x-kde4-urilist");
    static inline const QString kdeCutType = QStringLiteral("application/x-kde-cutselection");
};

} // namespace quillorn
