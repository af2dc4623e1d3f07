#pragma once

#include "platform/posix/filecontents.h"

#include <QByteArray>
#include <QString>
#include <filesystem>

namespace quillorn {

// A file opened in the text editor: regular UTF-8 text without NUL bytes, at
// most 8 MiB, with the exact bytes last read from or written to disk. Saving
// refuses when the disk no longer holds those bytes, so changes made by other
// programs are never overwritten. A plain value; load and save block on the
// file and run in background work.
struct TextDocument {
    using Path = std::filesystem::path;
    using SaveMethod = ContentsWrite;

    static constexpr std::size_t limit = 0x800000;

    Path url;
    QByteArray original; // the bytes on disk as this document last saw them
    QString text;        // what the editor shows and edits

    // Throws CommanderError "The editor supports regular UTF-8 files up to 8
    // MB. Open other files in their associated application." for anything but
    // a regular file within the limit (a symbolic link is refused, not
    // followed), "This is not a UTF-8 text file." for a NUL byte or invalid
    // UTF-8, and PosixError when the file cannot be read.
    static TextDocument load(const Path &url);

    // Writes `text` as UTF-8 if the file still holds `original`, then takes the
    // written bytes as `original`. Throws CommanderError "This file changed on
    // disk. Save was stopped to preserve the external changes." and PosixError;
    // a failed save changes neither the file nor the document, so it can be
    // retried. The result says whether the file was replaced whole or, to keep
    // its links, owner or attributes, written in place; then a journaled copy of
    // the old bytes stands in for the file until the new ones are flushed.
    SaveMethod save();

    // How save() will write `url`, as far as can be told before it does (see
    // expectedContentsWrite): the editor says so before the first save.
    static SaveMethod expectedSave(const Path &url) noexcept { return expectedContentsWrite(url); }
};

} // namespace quillorn
