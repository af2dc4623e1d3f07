#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace quillorn::test {

// A temporary folder that tests fill with real files and folders; removed
// (made writable first) when the object goes away.
class TestTree {
public:
    TestTree();
    explicit TestTree(const std::filesystem::path &parent);
    ~TestTree();
    TestTree(const TestTree &) = delete;
    TestTree &operator=(const TestTree &) = delete;

    const std::filesystem::path &root() const { return m_root; }
    std::filesystem::path operator/(const std::filesystem::path &relative) const { return m_root / relative; }

    // Creates the parents as needed and returns the absolute path.
    std::filesystem::path file(const std::filesystem::path &relative, std::string_view contents = {});
    std::filesystem::path folder(const std::filesystem::path &relative);
    std::filesystem::path symlink(const std::filesystem::path &relative, const std::filesystem::path &target);

    static std::string read(const std::filesystem::path &path);
    // The names in a folder, sorted.
    static std::vector<std::string> names(const std::filesystem::path &folder);

private:
    std::filesystem::path m_root;
};

// True when the process may mount, chown and switch users.
bool runningAsRoot();

// The file this process (or the process with the id process) has open in folder
// without a name, a lone file being copied there, as a /proc path to examine it
// by; empty when there is none.
std::filesystem::path unnamedFileIn(const std::filesystem::path &folder, long long process = 0);

} // namespace quillorn::test
