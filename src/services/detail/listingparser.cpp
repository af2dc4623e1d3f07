#include "services/detail/listingparser.h"

#include "operations/commandererror.h"

#include <algorithm>

namespace quillorn::detail {

ListingParser::ListingParser()
    // A leading byte order mark is part of the name as listed.
    : m_decoder(QStringDecoder::Utf8,
                QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom)
{
}

void ListingParser::feed(QByteArrayView chunk)
{
    qsizetype start = 0;
    for (qsizetype at = chunk.indexOf('\n'); at >= 0; at = chunk.indexOf('\n', at + 1)) {
        // A CR LF pair is one user-perceived character, not a line feed.
        const char before = at > 0 ? chunk[at - 1] : (m_partial.isEmpty() ? '\0' : m_partial.back());
        if (before == '\r')
            continue;
        if (m_partial.isEmpty()) {
            add(chunk.sliced(start, at - start));
        } else {
            m_partial.append(chunk.sliced(start, at - start));
            add(m_partial);
            m_partial.clear();
        }
        start = at + 1;
    }
    m_partial.append(chunk.sliced(start));
}

std::vector<ZipEntry> ListingParser::finish()
{
    add(m_partial);
    m_partial.clear();
    if (m_decoder.hasError())
        throw CommanderError("ZIP names must use UTF-8.");
    if (m_duplicate)
        throw CommanderError("ZIP contains duplicate names and cannot be browsed safely.");
    return std::move(m_entries);
}

void ListingParser::add(QByteArrayView line)
{
    if (line.isEmpty())
        return;
    ZipEntry entry{m_decoder.decode(line)};
    // Canonical equivalence: a precomposed and a decomposed accent are one
    // name. ASCII is its own normal form, and most names are ASCII.
    const QString key = QtPrivate::isAscii(QStringView(entry.name))
                            ? entry.name
                            : entry.name.normalized(QString::NormalizationForm_C);
    m_duplicate = seen(key) || m_duplicate;
    m_entries.push_back(std::move(entry));
}

bool ListingParser::seen(const QString &key)
{
    if (2 * (m_keys.size() + 1) > m_slots.size()) {
        std::vector<Slot> larger(std::max<std::size_t>(1024, 2 * m_slots.size()));
        const std::size_t mask = larger.size() - 1;
        for (const Slot &slot : m_slots) {
            if (slot.key < 0)
                continue;
            std::size_t at = slot.hash & mask;
            while (larger[at].key >= 0)
                at = (at + 1) & mask;
            larger[at] = slot;
        }
        m_slots = std::move(larger);
    }
    const std::size_t mask = m_slots.size() - 1;
    const std::size_t hash = qHash(key);
    std::size_t at = hash & mask;
    for (; m_slots[at].key >= 0; at = (at + 1) & mask) {
        if (m_slots[at].hash == hash && m_keys[std::size_t(m_slots[at].key)] == key)
            return true;
    }
    m_slots[at] = Slot{hash, qsizetype(m_keys.size())};
    m_keys.push_back(key);
    return false;
}

} // namespace quillorn::detail
