#pragma once

#include "services/zipentry.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QStringDecoder>
#include <vector>

namespace quillorn::detail {

// Turns unzip's short listing into entries while unzip is still writing it, so
// the names are checked in the time the reader would otherwise wait for more
// output. Lines end at a line feed that does not follow a carriage return,
// wherever the chunks happen to be cut. Failures are kept until finish, since
// a failed or oversized listing is reported before anything about its names.
class ListingParser {
public:
    ListingParser();

    void feed(QByteArrayView chunk);
    // The entries in listing order. Throws CommanderError "ZIP names must use
    // UTF-8." or "ZIP contains duplicate names and cannot be browsed safely.".
    std::vector<ZipEntry> finish();

private:
    void add(QByteArrayView line);
    // Whether an equal key was seen before; remembers this one. An open
    // addressing table of key indexes that keeps each key's hash beside it, so
    // names are compared only when their hashes are equal and growing the
    // table hashes nothing again. QSet, which compares every name it probes,
    // took most of the parsing's time.
    bool seen(const QString &key);

    struct Slot {
        std::size_t hash = 0;
        qsizetype key = -1; // index into m_keys; -1 when the slot is free
    };

    QStringDecoder m_decoder;
    QByteArray m_partial; // the bytes of the line not yet ended
    std::vector<ZipEntry> m_entries;
    std::vector<QString> m_keys; // the names in their canonical form
    std::vector<Slot> m_slots;   // a power of two, at most half of it used
    bool m_duplicate = false;
};

} // namespace quillorn::detail
