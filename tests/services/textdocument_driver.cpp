// One save from the command line, so that fault tests can run it under strace
// or as another user: textdocument_driver FILE NEW-TEXT-FILE loads FILE, puts
// the contents of NEW-TEXT-FILE in its place and saves. Prints how the file was
// written; exit 1 with the message on stderr when loading or saving fails.
#include "operations/userfacing.h"
#include "services/textdocument.h"

#include <cstdio>
#include <fstream>
#include <iterator>

int main(int argc, char **argv)
{
    using namespace quillorn;
    if (argc != 3) {
        std::fprintf(stderr, "usage: textdocument_driver FILE NEW-TEXT-FILE\n");
        return 2;
    }
    try {
        TextDocument document = TextDocument::load(argv[1]);
        std::ifstream in(argv[2], std::ios::binary);
        const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        document.text = QString::fromStdString(text);
        std::printf("%d\n", int(document.save()));
        return 0;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s\n", userFacingText(error).c_str());
        return 1;
    }
}
