#include "model/detail/folderlisting.h"
#include "model/detail/urlindex.h"
#include "model/fileentry.h"
#include "testtree.h"

#include <gtest/gtest.h>

namespace fs = std::filesystem;
using namespace quillorn;
using namespace quillorn::detail;

namespace {

FileEntry fileAt(const fs::path &url, std::int64_t size = 0)
{
    return FileEntry(url, false, size, FileEntry::distantPast());
}

} // namespace

TEST(FileEntry, givesBackTheUrlItWasMadeFrom)
{
    for (const std::string url : {"/tmp/folder/item", "/item", "/", "relative/item", "/tmp/folder/",
                                  "/tmp/\xff\xfe name", "/tmp/line\nfeed", "/tmp/..", "//twice"}) {
        SCOPED_TRACE(url);
        const FileEntry entry = fileAt(url);
        EXPECT_EQ(entry.url().native(), url);
        EXPECT_EQ(entry.name(), fs::path(url).filename());
        EXPECT_EQ(entry.folder(), fs::path(url).parent_path());
        EXPECT_TRUE(entry.hasUrl(fs::path(url)));
    }
}

TEST(FileEntry, aListedEntryJoinsFolderAndNameWithOneSeparator)
{
    const FileEntry::Time t = FileEntry::distantPast();
    const auto slashed = std::make_shared<const fs::path>("/tmp/a/");
    const auto plain = std::make_shared<const fs::path>("/tmp/a");
    EXPECT_EQ(FileEntry(std::make_shared<const fs::path>("/"), "bin", true, 0, t).url().native(), "/bin");
    EXPECT_EQ(FileEntry(slashed, "b", false, 0, t).url().native(), "/tmp/a/b");
    EXPECT_EQ(FileEntry(slashed, "b", false, 0, t), FileEntry(plain, "b", false, 0, t));
}

TEST(FileEntry, hasUrlAndEqualityCompareTheWholePathAndTheFacts)
{
    const FileEntry entry = fileAt("/tmp/a/bc", 3);
    for (const char *other : {"/tmp/a-bc", "/tmp/a/bc/", "/tmp/x/bc", "/tmp/a/b", "bc"})
        EXPECT_FALSE(entry.hasUrl(fs::path(other))) << other;
    EXPECT_EQ(entry, fileAt("/tmp/a/bc", 3)); // another folder object, same folder
    EXPECT_NE(entry, fileAt("/tmp/a/bc", 4));
    EXPECT_NE(entry, fileAt("/tmp/x/bc", 3));
    EXPECT_NE(entry, FileEntry("/tmp/a/bc", true, 3, FileEntry::distantPast()));
    EXPECT_NE(entry, FileEntry("/tmp/a/bc", false, 3, FileEntry::Time{}));
}

TEST(UrlIndex, findsEntriesOfTheSameNameInDifferentFolders)
{
    const std::vector<FileEntry> entries = {fileAt("/x/a"), fileAt("/y/a"), fileAt("/x/b"), fileAt("/a")};
    const UrlIndex index(entries);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(index.find(entries, entries[std::size_t(i)].url()), i);
    for (const char *absent : {"/z/a", "/x/c", "a"})
        EXPECT_EQ(index.find(entries, absent), std::nullopt) << absent;
    EXPECT_EQ(index.findName(entries, "b"), 2);
    EXPECT_EQ(UrlIndex().find(entries, "/x/a"), std::nullopt);
}

// A pane that moves to another folder hands over the listing it shows; equal
// names and facts elsewhere must not pass for "unchanged".
TEST(FolderListing, aFolderWithTheSameNamesAndFactsIsNotTakenForTheOneShown)
{
    test::TestTree tree;
    const auto stamp = fs::file_time_type::clock::now() - std::chrono::hours(1);
    for (const char *folder : {"a", "b"})
        fs::last_write_time(tree.file(fs::path(folder) / "same", "12"), stamp);
    const std::atomic<bool> cancelled = false;
    const auto listingOf = [&](const fs::path &folder, const PreviousListing *previous) {
        auto result = listFolder(folder, true, cancelled, previous);
        FolderListing *listing = result ? std::get_if<FolderListing>(&*result) : nullptr;
        return listing ? std::move(*listing) : FolderListing{};
    };
    const FolderListing shown = listingOf(tree / "a", nullptr);
    ASSERT_EQ(shown.entries.size(), 1u);
    const PreviousListing previous{shown.entries, shown.index};
    EXPECT_TRUE(listingOf(tree / "a", &previous).unchanged);
    const FolderListing other = listingOf(tree / "b", &previous);
    ASSERT_FALSE(other.unchanged);
    ASSERT_EQ(other.entries.size(), 1u);
    EXPECT_EQ(other.entries[0].url(), tree / "b/same");
}
