// One save from the command line, so that fault tests can run it under strace
// or as another user: textdocument_driver FILE NEW-TEXT-FILE [retry|plan] loads
// FILE, puts the contents of NEW-TEXT-FILE in its place and saves. Prints how the
// file was written; exit 1 with the message on stderr when loading or saving
// fails. With "retry", a failed save is reported on stdout and tried once more
// with the same document, as the editor's Save would be. With "plan", how the
// save was expected to write is printed first, on a line of its own.
#include "operations/userfacing.h"
#include "services/textdocument.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string_view>

int main(int argc, char **argv)
{
    using namespace quillorn;
    const bool retry = argc == 4 && std::string_view(argv[3]) == "retry";
    const bool plan = argc == 4 && std::string_view(argv[3]) == "plan";
    if (argc != 3 && !retry && !plan) {
        std::fprintf(stderr, "usage: textdocument_driver FILE NEW-TEXT-FILE [retry|plan]\n");
        return 2;
    }
    try {
        TextDocument document = TextDocument::load(argv[1]);
        std::ifstream in(argv[2], std::ios::binary);
        const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        document.text = QString::fromStdString(text);
        if (plan)
            std::printf("%d\n", int(TextDocument::expectedSave(argv[1])));
        if (retry) {
            try {
                std::printf("%d\n", int(document.save()));
                return 0;
            } catch (const std::exception &error) {
                std::printf("%s\n", userFacingText(error).c_str());
            }
        }
        std::printf("%d\n", int(document.save()));
        return 0;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s\n", userFacingText(error).c_str());
        return 1;
    }
}
