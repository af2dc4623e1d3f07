#pragma once

#include <QHash>
#include <QString>

namespace quillorn {

// One member of a ZIP archive: its path inside the archive exactly as the
// listing gives it, "/" between components; a folder entry ends with "/".
// Names are unique within one listing, so the name is the entry's identity.
struct ZipEntry {
    QString name;

    const QString &id() const { return name; }
    bool directory() const { return name.endsWith(QLatin1Char('/')); }

    friend bool operator==(const ZipEntry &, const ZipEntry &) = default;
};

inline size_t qHash(const ZipEntry &entry, size_t seed = 0)
{
    return qHash(entry.name, seed);
}

} // namespace quillorn
