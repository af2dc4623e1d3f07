// One renameWithoutReplacing from the command line, so that a test can run it
// under strace and act while its calls are held: rename_driver FROM TO.
// Exit 1 with "errno: text" on stderr when the rename is refused.
#include "platform/posix/posixerror.h"
#include "platform/posix/renaming.h"

#include <cstdio>

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: rename_driver FROM TO\n");
        return 2;
    }
    try {
        quillorn::renameWithoutReplacing(argv[1], argv[2]);
        return 0;
    } catch (const quillorn::PosixError &error) {
        std::fprintf(stderr, "%d: %s\n", error.code().value(), error.code().message().c_str());
        return 1;
    }
}
