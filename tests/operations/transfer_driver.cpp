// One transfer from the command line, so that fault tests can run it under strace
// (failing or killing it at one system call) or as another user:
//   transfer_driver copy|move <policy raw value> <destination> <source>...
// Exit 1 with the message on stderr when the transfer fails, 2 when cancelled, 3 otherwise.
#include "operations/appdiagnostics.h"
#include "operations/commandererror.h"
#include "operations/fileoperations.h"

#include <cstdio>
#include <string>
#include <vector>

int main(int argc, char **argv)
{
    using namespace quillorn;
    const std::optional<ConflictPolicy> policy =
        argc >= 5 ? conflictPolicyFromRawValue(argv[2]) : std::nullopt;
    const std::string mode = argc >= 2 ? argv[1] : "";
    if (!policy || (mode != "copy" && mode != "move")) {
        std::fprintf(stderr, "usage: %s copy|move POLICY DESTINATION SOURCE...\n", argv[0]);
        return 64;
    }
    try {
        const std::vector<std::filesystem::path> sources(argv + 4, argv + argc);
        FileOperations().transfer(sources, argv[3], mode == "move", *policy, true);
        return 0;
    } catch (const CommanderError &error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    } catch (const CancellationError &) {
        return 2;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s\n", AppDiagnostics::describe(error).c_str());
        return 3;
    }
}
