// One copy or move from the command line, so that fault tests can run it under strace
// or as another user: transfer_driver copy|move <policy raw value> <destination> <source>...
// Exit 1 with the message on stderr when the transfer fails, 3 with the text a user
// would see on any other error. QUILLORN_DRIVER_PENDING_WRITEBACK=<bytes> stands in for
// other programs' unwritten data, so a test chooses how a copied folder is flushed.
#include "operations/commandererror.h"
#include "operations/fileoperations.h"
#include "operations/userfacing.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argc, char **argv)
{
    using namespace quillorn;
    try {
        if (argc < 5)
            throw std::invalid_argument("usage: transfer_driver copy|move POLICY DESTINATION SOURCE...");
        FileOperations::FileManager manager = FileOperations::FileManager::posix();
        if (const char *pending = std::getenv("QUILLORN_DRIVER_PENDING_WRITEBACK"))
            manager.pendingWriteBack = [bytes = std::uint64_t{std::stoull(pending)}](int) { return bytes; };
        FileOperations(FileOperations::defaultTrash(), FileOperations::defaultRemove(),
                       FileOperations::defaultVolumeIsLocal(), manager)
            .transfer(std::vector<std::filesystem::path>(argv + 4, argv + argc), argv[3],
                      argv[1] == std::string("move"), conflictPolicyFromRawValue(argv[2]).value(), true);
        return 0;
    } catch (const CommanderError &error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s\n", userFacingText(error).c_str());
        return 3;
    }
}
