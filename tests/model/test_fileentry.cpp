#include "model/detail/folderlisting.h"
#include "model/fileentry.h"
#include "testtree.h"

#include <gtest/gtest.h>

namespace fs = std::filesystem;
using namespace quillorn;
using namespace quillorn::detail;

static FileEntry fileAt(const fs::path &url, std::int64_t size = 0)
{
    return FileEntry(url, false, size, FileEntry::distantPast());
}

TEST(FileEntry, givesBackItsUrlAndComparesTheWholePathAndTheFacts)
{
    for (const std::string url :
         {"/item", "/", "relative/item", "/tmp/folder/", "/tmp/\xff\nname", "//twice"}) {
        EXPECT_EQ(fileAt(url).url().native(), url);
        EXPECT_TRUE(fileAt(url).hasUrl(fs::path(url))) << url;
    }
    const FileEntry entry(std::make_shared<const fs::path>("/tmp/a/"), "bc", false, 3,
                          FileEntry::distantPast());
    EXPECT_EQ(entry.url().native(), "/tmp/a/bc"); // one separator
    EXPECT_EQ(entry, fileAt("/tmp/a/bc", 3));     // another folder object, same folder
    for (const char *other : {"/tmp/a-bc", "/tmp/a/bc/", "/tmp/x/bc", "/tmp/a/b", "bc"})
        EXPECT_FALSE(entry.hasUrl(fs::path(other))) << other;
    for (const FileEntry &other : {fileAt("/tmp/a/bc", 4), fileAt("/tmp/x/bc", 3),
                                   FileEntry("/tmp/a/bc", true, 3, FileEntry::distantPast())})
        EXPECT_NE(entry, other) << other.url();
}

// A pane moving elsewhere hands over the listing it shows: equal names and facts there are not "unchanged".
TEST(FolderListing, aFolderWithTheSameNamesAndFactsIsNotTakenForTheOneShown)
{
    test::TestTree tree;
    tree.file("a/same", "12");
    tree.file("b/same", "12");
    fs::last_write_time(tree / "b/same", fs::last_write_time(tree / "a/same"));
    const std::atomic<bool> cancelled = false;
    const auto listingOf = [&](const char *folder, const PreviousListing *previous) {
        auto result = listFolder(tree / folder, true, cancelled, previous);
        FolderListing *listing = result ? std::get_if<FolderListing>(&*result) : nullptr;
        return listing ? std::move(*listing) : FolderListing{};
    };
    const FolderListing shown = listingOf("a", nullptr);
    const PreviousListing previous{shown.entries, shown.index};
    EXPECT_TRUE(listingOf("a", &previous).unchanged);
    const FolderListing other = listingOf("b", &previous);
    EXPECT_EQ(other.entries.size() == 1 ? other.entries[0].url() : fs::path(), tree / "b/same");
}
