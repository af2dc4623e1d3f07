// A command-line front to the archive jobs for bench/archives.sh: each run is
// what the queue's worker runs, timed from the shell with the process start.
//
//   archives_tool list ARCHIVE          the members the sheet shows (count)
//   archives_tool unpack ARCHIVE DEST   unpacks into DEST/<name>, flushed and published
//   archives_tool pack OUT ITEM...      packs the items into OUT (its extension: the format)
#include "operations/operationcontrol.h"
#include "services/archivecatalog.h"
#include "services/archivepacking.h"
#include "services/archiveunpacking.h"

#include <clocale>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

int main(int argc, char **argv)
{
    using namespace quillorn;
    // As the program runs: the user's locale, which the library converts names by.
    std::setlocale(LC_ALL, "");
    const std::string mode = argc >= 3 ? argv[1] : "";
    try {
        OperationControl control;
        if (mode == "list" && argc == 3) {
            std::printf("%zu\n", ArchiveCatalog::list(argv[2]).size());
        } else if (mode == "unpack" && argc == 4) {
            std::printf("%s\n", ArchiveUnpackJob{argv[2], argv[3], {}, true}(control).c_str());
        } else if (mode == "pack" && argc >= 4) {
            const std::filesystem::path out(argv[2]);
            std::vector<std::filesystem::path> items(argv + 3, argv + argc);
            std::printf("%s\n",
                        ArchivePackJob{items, out.parent_path(), out.filename().string()}(control).c_str());
        } else {
            std::fprintf(stderr,
                         "usage: archives_tool list ARCHIVE | unpack ARCHIVE DEST | pack OUT ITEM...\n");
            return 2;
        }
    } catch (const std::exception &error) {
        std::fprintf(stderr, "archives_tool: %s\n", error.what());
        return 1;
    }
    return 0;
}
