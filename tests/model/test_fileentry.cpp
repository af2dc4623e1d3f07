#include "model/detail/folderlisting.h"
#include "model/detail/urlindex.h"
#include "model/fileentry.h"
#include "testtree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace fs = std::filesystem;
using quillorn::FileEntry;
using quillorn::detail::FolderListing;
using quillorn::detail::listFolder;
using quillorn::detail::PreviousListing;
using quillorn::detail::UrlIndex;
using quillorn::test::TestTree;

namespace {

FileEntry fileAt(const fs::path &url, std::int64_t size = 0)
{
    return FileEntry(url, false, size, FileEntry::distantPast());
}

FolderListing listed(const fs::path &folder, const PreviousListing *previous = nullptr)
{
    const std::atomic<bool> cancelled = false;
    auto result = listFolder(folder, true, cancelled, previous);
    if (!result || !std::holds_alternative<FolderListing>(*result))
        throw std::runtime_error("listing failed: " + folder.native());
    return std::get<FolderListing>(std::move(*result));
}

std::vector<std::string> urlsOf(const std::vector<FileEntry> &entries)
{
    std::vector<std::string> urls;
    for (const FileEntry &entry : entries)
        urls.push_back(entry.url().native());
    return urls;
}

} // namespace

// ---- one entry

TEST(FileEntry, givesBackTheUrlItWasMadeFrom)
{
    for (const std::string url : {"/tmp/folder/item", "/item", "/", "item", "relative/item", "/tmp/folder/",
                                  "/tmp/\xff\xfe name", "/tmp/line\nfeed", "/tmp/..", "//twice"}) {
        SCOPED_TRACE(url);
        const FileEntry entry = fileAt(url);
        EXPECT_EQ(entry.url().native(), url);
        EXPECT_EQ(entry.id(), entry.url());
        EXPECT_EQ(entry.name(), fs::path(url).filename());
        EXPECT_EQ(entry.folder(), fs::path(url).parent_path());
        EXPECT_TRUE(entry.hasUrl(fs::path(url)));
    }
}

TEST(FileEntry, aListedEntryJoinsFolderAndNameWithOneSeparator)
{
    const auto root = std::make_shared<const fs::path>("/");
    const auto slashed = std::make_shared<const fs::path>("/tmp/a/");
    const auto plain = std::make_shared<const fs::path>("/tmp/a");
    const FileEntry::Time t = FileEntry::distantPast();
    EXPECT_EQ(FileEntry(root, "bin", true, 0, t).url().native(), "/bin");
    EXPECT_EQ(FileEntry(slashed, "b", false, 0, t).url().native(), "/tmp/a/b");
    EXPECT_EQ(FileEntry(plain, "b", false, 0, t).url().native(), "/tmp/a/b");
    EXPECT_EQ(FileEntry(slashed, "b", false, 0, t), FileEntry(plain, "b", false, 0, t));
}

TEST(FileEntry, hasUrlMatchesTheWholePathOnly)
{
    const FileEntry entry = fileAt("/tmp/a/bc");
    EXPECT_TRUE(entry.hasUrl(fs::path("/tmp/a/bc")));
    EXPECT_FALSE(entry.hasUrl(fs::path("/tmp/a-bc"))); // same length, no separator
    EXPECT_FALSE(entry.hasUrl(fs::path("/tmp/a/bc/")));
    EXPECT_FALSE(entry.hasUrl(fs::path("/tmp/x/bc")));
    EXPECT_FALSE(entry.hasUrl(fs::path("/tmp/a/b")));
    EXPECT_FALSE(entry.hasUrl(fs::path("bc")));
    EXPECT_FALSE(FileEntry().hasUrl(fs::path("/")));
    EXPECT_TRUE(FileEntry().hasUrl(fs::path()));
}

TEST(FileEntry, equalityOverUrlAndFacts)
{
    const FileEntry entry = fileAt("/tmp/a/b", 3);
    EXPECT_EQ(entry, fileAt("/tmp/a/b", 3)); // another folder object, same folder
    EXPECT_NE(entry, fileAt("/tmp/a/b", 4));
    EXPECT_NE(entry, fileAt("/tmp/x/b", 3));
    EXPECT_NE(entry, fileAt("/tmp/a/c", 3));
    EXPECT_NE(entry, FileEntry("/tmp/a/b", true, 3, FileEntry::distantPast()));
    EXPECT_NE(entry, FileEntry("/tmp/a/b", false, 3, FileEntry::Time{}));
    const FileEntry copy = entry;
    EXPECT_EQ(copy.sharedFolder(), entry.sharedFolder());
    EXPECT_EQ(copy, entry);
}

// ---- the url index

TEST(UrlIndex, findsEntriesOfTheSameNameInDifferentFolders)
{
    const std::vector<FileEntry> entries = {fileAt("/x/a"), fileAt("/y/a"), fileAt("/x/b"), fileAt("/a")};
    const UrlIndex index(entries);
    EXPECT_EQ(index.find(entries, "/x/a"), 0);
    EXPECT_EQ(index.find(entries, "/y/a"), 1);
    EXPECT_EQ(index.find(entries, "/x/b"), 2);
    EXPECT_EQ(index.find(entries, "/a"), 3);
    EXPECT_EQ(index.find(entries, "/z/a"), std::nullopt);
    EXPECT_EQ(index.find(entries, "/x/c"), std::nullopt);
    EXPECT_EQ(index.find(entries, "a"), std::nullopt);
    EXPECT_EQ(index.findName(entries, "b"), 2);
    EXPECT_EQ(index.findName(entries, "c"), std::nullopt);
    EXPECT_EQ(UrlIndex().find(entries, "/x/a"), std::nullopt);
}

// ---- entries of a real listing

TEST(FolderListing, entriesShareTheirFolderAndNameTheirItems)
{
    TestTree tree;
    tree.file("one", "1");
    tree.folder("two");
    tree.file("\xff three");
    const FolderListing listing = listed(tree.root());
    ASSERT_EQ(listing.entries.size(), 3u);
    EXPECT_THAT(urlsOf(listing.entries),
                testing::UnorderedElementsAre((tree / "one").native(), (tree / "two").native(),
                                              (tree / "\xff three").native()));
    for (const FileEntry &entry : listing.entries) {
        EXPECT_EQ(entry.sharedFolder(), listing.entries.front().sharedFolder());
        EXPECT_EQ(listing.index.find(listing.entries, entry.url()), &entry - listing.entries.data());
    }
}

TEST(FolderListing, aFolderWithTheSameNamesAndFactsIsNotTakenForTheOneShown)
{
    TestTree tree;
    const auto stamp = fs::file_time_type::clock::now() - std::chrono::hours(1);
    for (const char *folder : {"a", "b"}) {
        const fs::path file = tree.file(fs::path(folder) / "same", "12");
        fs::last_write_time(file, stamp);
    }
    const FolderListing shown = listed(tree / "a");
    const PreviousListing previous{shown.entries, shown.index};

    EXPECT_TRUE(listed(tree / "a", &previous).unchanged);
    const FolderListing other = listed(tree / "b", &previous);
    ASSERT_FALSE(other.unchanged);
    EXPECT_THAT(urlsOf(other.entries), testing::ElementsAre((tree / "b/same").native()));
}
