#pragma once

#include <QByteArray>
#include <QString>
#include <filesystem>
#include <memory>
#include <string>

namespace quillorn {

class OperationControl;

// The queue job that extracts one ZIP member as a single file into a folder:
// the member's file name alone (its folders in the archive are not made), never
// replacing an item, with no metadata from the archive. A small value: what to
// extract from where to where, plus the member's bytes when they were read
// already (the sheet reads them first, to report a bad member at once); without
// them the job reads the member itself.
struct ArchiveExtraction {
    using Path = std::filesystem::path;

    Path archive;
    QString member;
    Path destination;
    std::shared_ptr<const QByteArray> bytes;

    // The last component of the member's path: "c.txt" for "a/b/c.txt".
    QString fileName() const;
    // The queue row's title: "Extract c.txt".
    QString title() const;

    // Throws CommanderError for an invalid file name or one that exists (also
    // when it appears while the bytes are written), the errors of
    // ArchiveTools::member, PosixError and CancellationError.
    void operator()(OperationControl &control) const;
};

} // namespace quillorn
