#pragma once

#include "operations/folder.h"

#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace quillorn::detail {

// One name in a folder with its own attributes (a link is not followed).
struct Entry {
    std::string name;
    struct stat info;
};

// A selected item: the folder holding it, opened by path (links on the way are
// the user's choice), and the item's own attributes.
struct Item {
    Folder parent;
    Entry entry;

    std::filesystem::path path() const { return parent / entry.name; }
};

// Opens the folder that holds item and reads item's attributes; throws PosixError.
Item openItem(const std::filesystem::path &item);

// The folder holding item, opened only for naming things in it (O_PATH): enough
// for openat, mkdirat and renameat even where the user may not list it.
Folder openFolderForNames(const std::filesystem::path &folder);

// Opens entry of parent as a folder, never through a link, and checks that it is
// still the folder whose attributes were read; throws PosixError (ELOOP or
// ENOTDIR when a link or file took its place, ESTALE when another folder did).
Folder openChildFolder(const Folder &parent, const Entry &entry);

// Every entry of folder except "." and "..", hidden ones included, with its own
// attributes, in the order the file system lists them; throws PosixError.
std::vector<Entry> folderEntries(const Folder &folder);

// Attributes of name in folder, a link not followed; throws PosixError.
struct stat entryAttributes(const Folder &folder, const std::string &name);

// The depth-first walk that measuring, fingerprinting and copying share.
class TreeVisitor {
public:
    virtual ~TreeVisitor() = default;
    // Every entry below the walked folder; true for a folder to walk into it.
    virtual bool visit(const Folder &folder, const Entry &entry) = 0;
    // After the entries of a folder that visit() chose to walk.
    virtual void leave(const Folder &folder, const Entry &entry)
    {
        (void)folder;
        (void)entry;
    }
};

void walk(const Folder &folder, TreeVisitor &visitor);

// Visits item, then, when it is a folder and visit() asks for it, its contents.
void walk(const Item &item, TreeVisitor &visitor);

} // namespace quillorn::detail
