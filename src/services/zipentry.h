#pragma once

#include <QHash>
#include <QString>
#include <cstdint>
#include <string>

namespace quillorn {

// One member of a ZIP archive: its path inside the archive exactly as the
// listing gives it, "/" between components; a folder entry ends with "/".
// Names are unique within one listing, so the name is the entry's identity.
// Members of the other formats (read through the archive library) also carry
// their stored name's bytes, size, date and whether they are encrypted; the
// name alone stays the identity.
struct ZipEntry {
    QString name;
    std::string bytes = {};     // the stored name; empty for a ZIP listed by unzip
    std::int64_t size = -1;     // -1: not known
    std::int64_t modified = -1; // seconds since 1970; -1: not known
    bool encrypted = false;

    const QString &id() const { return name; }
    bool directory() const { return name.endsWith(QLatin1Char('/')); }

    friend bool operator==(const ZipEntry &a, const ZipEntry &b) { return a.name == b.name; }
};

inline size_t qHash(const ZipEntry &entry, size_t seed = 0)
{
    return qHash(entry.name, seed);
}

} // namespace quillorn
