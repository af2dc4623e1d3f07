// Runs one transfer the way a queue job does, for timing from the shell:
//   transfer_tool [--move] DESTINATION SOURCE...
// Prints the published items; exits 1 with the error's message on failure.
#include "operations/commandererror.h"
#include "operations/fileoperations.h"

#include <cstring>
#include <iostream>

int main(int argc, char **argv)
{
    int first = 1;
    const bool move = argc > 1 && std::strcmp(argv[1], "--move") == 0;
    if (move)
        ++first;
    if (argc - first < 2) {
        std::cerr << "usage: transfer_tool [--move] DESTINATION SOURCE...\n";
        return 2;
    }
    const std::filesystem::path destination = argv[first];
    std::vector<std::filesystem::path> sources(argv + first + 1, argv + argc);
    try {
        quillorn::OperationControl control;
        const quillorn::FileOperations operations;
        const auto published =
            operations.transfer(sources, destination, move, quillorn::ConflictPolicy::stop, control, false);
        for (const auto &item : published)
            std::cout << item.native() << '\n';
        return 0;
    } catch (const std::exception &error) {
        std::cerr << "transfer_tool: " << error.what() << '\n';
        return 1;
    }
}
