#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quillorn::detail {

// The names of a listing's entries, in entry order, packed into one buffer.
// Filtering scans these in sequence instead of visiting every entry's path on
// the heap: for 100,000 entries that is the difference between cache misses
// and a straight read of about 1.5 MB.
class PackedNames {
public:
    void reserve(std::size_t count, std::size_t bytes)
    {
        m_ends.reserve(count);
        m_bytes.reserve(bytes);
    }
    void append(std::string_view name)
    {
        m_bytes.append(name);
        m_ends.push_back(static_cast<std::uint32_t>(m_bytes.size()));
    }
    std::size_t size() const { return m_ends.size(); }
    std::string_view operator[](std::size_t i) const
    {
        const std::uint32_t begin = i == 0 ? 0 : m_ends[i - 1];
        return std::string_view(m_bytes).substr(begin, m_ends[i] - begin);
    }

private:
    std::string m_bytes;
    std::vector<std::uint32_t> m_ends;
};

} // namespace quillorn::detail
