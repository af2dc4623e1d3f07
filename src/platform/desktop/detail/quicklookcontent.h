#pragma once

#include <QImage>
#include <QString>
#include <cstdint>
#include <filesystem>

namespace quillorn::detail {

// What the quick-look window shows for one item, read off the interface
// thread: a picture, the start of a text, or the item's facts.
struct QuickLookContent {
    enum class Kind { image, text, facts };

    Kind kind = Kind::facts;
    QString title;          // the item's name as drawn
    QImage image;           // Kind::image
    QString text;           // Kind::text: the text; Kind::facts: one fact per line
    bool truncated = false; // Kind::text: only the first textLimit bytes are shown

    static constexpr std::int64_t textLimit = 256 * 1024;
    // Pictures larger than this on a side are decoded at a reduced size.
    static constexpr int largestImageSide = 4096;

    // Throws std::system_error (PosixError) when the item cannot be read.
    static QuickLookContent load(const std::filesystem::path &item);
};

} // namespace quillorn::detail
