#include "testtree.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace quillorn::test {

namespace {

fs::path makeTemporaryFolder(const fs::path &parent)
{
    std::string pattern = (parent / "quillorn-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data()))
        throw std::system_error(errno, std::generic_category(), "mkdtemp " + pattern);
    return pattern;
}

void makeWritable(const fs::path &root)
{
    std::error_code ec;
    fs::permissions(root, fs::perms::owner_all, fs::perm_options::add | fs::perm_options::nofollow, ec);
    for (auto it = fs::recursive_directory_iterator(root, fs::directory_options::skip_permission_denied, ec);
         !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (it->is_directory(ec) && !it->is_symlink(ec))
            fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
    }
}

} // namespace

TestTree::TestTree() : TestTree(fs::temp_directory_path())
{
}

TestTree::TestTree(const fs::path &parent) : m_root(makeTemporaryFolder(parent))
{
}

TestTree::~TestTree()
{
    std::error_code ec;
    makeWritable(m_root);
    fs::remove_all(m_root, ec);
}

fs::path TestTree::file(const fs::path &relative, std::string_view contents)
{
    const fs::path path = m_root / relative;
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
    if (!out)
        throw std::runtime_error("cannot write test file " + path.string());
    return path;
}

fs::path TestTree::folder(const fs::path &relative)
{
    const fs::path path = m_root / relative;
    fs::create_directories(path);
    return path;
}

fs::path TestTree::symlink(const fs::path &relative, const fs::path &target)
{
    const fs::path path = m_root / relative;
    fs::create_directories(path.parent_path());
    fs::create_symlink(target, path);
    return path;
}

std::string TestTree::read(const fs::path &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream buffer;
    buffer << in.rdbuf();
    return buffer.str();
}

bool runningAsRoot()
{
    return ::geteuid() == 0;
}

std::filesystem::path unnamedFileIn(const std::filesystem::path &folder, long long process)
{
    // The kernel names such a file "#inode (deleted)" inside the folder it was made in.
    const std::filesystem::path descriptors =
        process ? "/proc/" + std::to_string(process) + "/fd" : std::string("/proc/self/fd");
    std::error_code listing;
    for (const auto &descriptor : std::filesystem::directory_iterator(descriptors, listing)) {
        std::error_code error;
        const std::filesystem::path target = std::filesystem::read_symlink(descriptor.path(), error);
        if (!error && target.parent_path() == folder && target.filename().string().starts_with("#"))
            return descriptor.path();
    }
    return {};
}

std::vector<std::string> TestTree::names(const std::filesystem::path &folder)
{
    std::vector<std::string> result;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        result.push_back(entry.path().filename());
    std::sort(result.begin(), result.end());
    return result;
}

} // namespace quillorn::test
