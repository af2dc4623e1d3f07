#pragma once

#include <QString>
#include <Qt>

#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

class QMimeData;

namespace quillorn {
class PaneModel;
}

namespace quillorn::detail {

// What a single click on the row of `url` does to the pane's cursor and tags:
// Ctrl toggles the tag, Shift tags the range from the cursor (a plain click
// when the cursor is not visible), a plain click clears every tag. The cursor
// always ends on the clicked row.
void applyRowClick(PaneModel &pane, const std::filesystem::path &url, Qt::KeyboardModifiers modifiers);

// What rows dragged out carry: their items as file URLs, in order,
// percent-encoded byte by byte so a name that is not UTF-8 reaches the drop
// target unchanged.
std::unique_ptr<QMimeData> dragData(const std::vector<std::filesystem::path> &items);

// The file URLs of a drop, in drop order; web links and the like are skipped.
std::vector<std::filesystem::path> droppedFiles(const QMimeData &mime);

// The folder typed into the path field: a leading "~" is the home folder, a
// relative path is taken relative to the folder the pane shows (`base`), and
// text that begins with the shown form of `base` keeps base's exact bytes.
std::filesystem::path typedFolder(const QString &text, const std::filesystem::path &home,
                                  const std::filesystem::path &base);

} // namespace quillorn::detail
