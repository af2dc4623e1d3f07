#pragma once

#include "testtree.h"

#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace quillorn::test {

// A desktop application for the tests: `<applications>/<id>` is a .desktop file
// whose Exec runs a shell script that writes the arguments it was given, each
// followed by a NUL byte, to `record` (whole, by a rename, so that a reader
// never sees half of it). `fieldCode` is how it takes files: %F, %f, %U or %u.
inline void addRecordingApplication(TestTree &tree, const std::filesystem::path &applications,
                                    const std::string &id, const std::string &name,
                                    const std::string &mimeTypes, const std::filesystem::path &record,
                                    const std::string &fieldCode = "%F")
{
    const std::filesystem::path script = tree.file(
        "scripts/" + id + ".sh", "#!/bin/sh\nprintf '%s\\0' \"$@\" > '" + record.string() + ".part' && mv '" +
                                     record.string() + ".part' '" + record.string() + "'\n");
    ::chmod(script.c_str(), 0755);
    tree.file(applications / id, "[Desktop Entry]\nType=Application\nName=" + name + "\nExec=" +
                                     script.string() + " " + fieldCode + "\nMimeType=" + mimeTypes + "\n");
}

// Indexes the MIME types of a folder's .desktop files (mimeinfo.cache), as a
// package installation does: the desktop reads which application takes which
// type from that index, not from the files themselves. True when it worked.
inline bool indexApplications(const std::filesystem::path &folder)
{
    return std::system(("update-desktop-database -q '" + folder.string() + "'").c_str()) == 0;
}

// The arguments a recording application wrote, in order.
inline std::vector<std::string> recordedArguments(const std::filesystem::path &record)
{
    std::vector<std::string> arguments;
    const std::string bytes = TestTree::read(record);
    for (std::size_t start = 0, end; (end = bytes.find('\0', start)) != std::string::npos; start = end + 1)
        arguments.push_back(bytes.substr(start, end - start));
    return arguments;
}

} // namespace quillorn::test
