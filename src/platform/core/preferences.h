#pragma once

#include <QSettings>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

namespace quillorn {

// The user's preferences: an INI file read through QSettings in its native
// format (~/.config/Quillorn/Quillorn.conf for the standard store, honouring
// $XDG_CONFIG_HOME). Every read is typed and takes a default; a missing key,
// garbage or a value of the wrong type yields the default and never throws.
// Paths come back byte for byte: one that is valid UTF-8 is stored as its plain
// text, so hand edits keep working; any other is stored as QSettings' escaped
// byte array (@ByteArray(...)). Lives on the interface thread.
class Preferences {
public:
    // The application's store, created on first use.
    static Preferences &standard();

    // A store backed by the INI file at iniPath (tests use a temporary file).
    explicit Preferences(const QString &iniPath);
    ~Preferences();

    Preferences(const Preferences &) = delete;
    Preferences &operator=(const Preferences &) = delete;

    bool contains(const QString &key) const;

    QStringList stringList(const QString &key, const QStringList &fallback = {}) const;
    int integer(const QString &key, int fallback = 0) const;
    QString text(const QString &key, const QString &fallback = {}) const;
    // true/false, or the texts "true"/"false" (how INI files store booleans).
    bool boolean(const QString &key, bool fallback = false) const;
    // Whether the stored value reads as a boolean at all (see boolean()).
    bool isBoolean(const QString &key) const;
    // Stored paths, in order; empty when missing or not a list of paths.
    std::vector<std::filesystem::path> pathList(const QString &key) const;
    std::optional<std::filesystem::path> path(const QString &key) const;

    void setStringList(const QString &key, const QStringList &value);
    void setInteger(const QString &key, int value);
    void setText(const QString &key, const QString &value);
    void setBoolean(const QString &key, bool value);
    void setPathList(const QString &key, const std::vector<std::filesystem::path> &value);
    void setPath(const QString &key, const std::filesystem::path &value);
    void remove(const QString &key);

    // Writes pending changes to disk.
    void sync();

    QString fileName() const;

private:
    Preferences();
    std::optional<bool> booleanValue(const QString &key) const;

    std::unique_ptr<QSettings> m_settings;
};

} // namespace quillorn
