#pragma once

#include <QSettings>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <memory>
#include <optional>

namespace quillorn {

// The user's preferences: an INI file read through QSettings
// (~/.config/Quillorn/Quillorn.conf for the standard store). Every read is typed and
// takes a default; a missing key, garbage or a value of the wrong type yields the
// default and never throws. Lives on the interface thread.
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

    void setStringList(const QString &key, const QStringList &value);
    void setInteger(const QString &key, int value);
    void setText(const QString &key, const QString &value);
    void setBoolean(const QString &key, bool value);
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
