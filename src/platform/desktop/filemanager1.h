#pragma once

#include <QObject>
#include <QString>
#include <filesystem>
#include <functional>
#include <vector>

namespace quillorn {

// org.freedesktop.FileManager1 on the session bus: what other programs call for
// "Show in folder" (browsers' downloads, editors, terminals). Quillorn takes the
// name only when nobody owns it, and lets a later file manager take it over,
// unless the user chose Quillorn as the default file manager (the default
// application of inode/directory), in which case it asks for the name even when
// another holds it.
class FileManager1 : public QObject {
    Q_OBJECT
public:
    static constexpr const char *serviceName = "org.freedesktop.FileManager1";
    static constexpr const char *objectPath = "/org/freedesktop/FileManager1";
    static constexpr const char *desktopEntry = "quillorn.desktop";

    explicit FileManager1(QObject *parent = nullptr);
    ~FileManager1() override;

    // Serves the object and asks for the name. `isDefault`: whether the user
    // chose Quillorn for folders; see isDefaultFolderHandler(). False when the
    // name stayed with another owner or there is no session bus.
    bool claim(bool isDefault);
    // Whether `xdg-mime query default inode/directory` names Quillorn's entry.
    // Runs the query without waiting; `done` hears the answer on this thread.
    static void isDefaultFolderHandler(QObject *context, std::function<void(bool)> done);

Q_SIGNALS:
    // Each folder in a new tab.
    void showFolders(const std::vector<std::filesystem::path> &folders, const QString &activationToken);
    // The items' folders, each in a new tab with the cursor on its first item
    // and several items of one folder tagged.
    void showItems(const std::vector<std::filesystem::path> &items, const QString &activationToken);
    // The information of the items.
    void showItemProperties(const std::vector<std::filesystem::path> &items, const QString &activationToken);

private:
    class Object;
    Object *m_object = nullptr;
    bool m_registered = false; // the bus is only reached once asked to
};

} // namespace quillorn
