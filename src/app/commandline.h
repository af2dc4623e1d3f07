#pragma once

#include <QString>
#include <filesystem>
#include <string>
#include <vector>

namespace quillorn {

// What `quillorn [DIR|FILE|file:// URI]…` asks for. A folder opens in a new tab
// of the left pane; a file opens its folder with the cursor on it.
struct CommandLine {
    // Absolute, lexically normal paths as the system's bytes, in the order given.
    std::vector<std::filesystem::path> targets;
    // --help, --version or a refused argument: print this, exit with `status`.
    bool exitNow = false;
    int status = 0;
    QString output;      // for standard output (help, version)
    QString errorOutput; // for standard error

    // The arguments without the program name, as the system's bytes: a name
    // need not be valid UTF-8, and Qt's decoding of argv would lose its bytes.
    // Relative paths are taken from `workingFolder`.
    static CommandLine parse(const std::vector<std::string> &arguments,
                             const std::filesystem::path &workingFolder);
};

} // namespace quillorn
