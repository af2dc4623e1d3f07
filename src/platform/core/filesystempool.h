#pragma once

class QThreadPool;

namespace quillorn {

// Threads for short blocking file-system work: folder listings, opening folder
// watches, freeing large listings. Kept apart from QThreadPool::globalInstance()
// so that long jobs elsewhere cannot starve a pane, and wider than the core
// count so that a folder on a hung network mount does not stall every other.
QThreadPool &fileSystemPool();

} // namespace quillorn
