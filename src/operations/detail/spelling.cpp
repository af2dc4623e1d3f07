#include "operations/detail/spelling.h"

#include <unicode/unistr.h>

#include <dirent.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

namespace fs = std::filesystem;

namespace quillorn::detail {

namespace {

std::string folded(const std::string &name)
{
    std::string result;
    icu::UnicodeString::fromUTF8(name).foldCase().toUTF8String(result);
    return result;
}

// The listed name of folder that is name exactly, else the one that equals it
// with case folded; nothing when neither is listed.
std::optional<std::string> listedName(const fs::path &folder, const std::string &name)
{
    std::unique_ptr<DIR, int (*)(DIR *)> stream(::opendir(folder.c_str()), ::closedir);
    if (!stream)
        return std::nullopt;
    const std::string wanted = folded(name);
    std::optional<std::string> match;
    while (const dirent *entry = ::readdir(stream.get())) {
        if (entry->d_name == name)
            return name;
        if (!match && folded(entry->d_name) == wanted)
            match = entry->d_name;
    }
    return match;
}

} // namespace

fs::path listedSpelling(const fs::path &path)
{
    fs::path folder = path.parent_path();
    if (char *real = ::realpath(folder.c_str(), nullptr)) {
        folder = real;
        std::free(real);
    }
    fs::path spelled = folder.root_path();
    for (const fs::path &component : folder.relative_path())
        spelled /= listedName(spelled, component.native()).value_or(component.native());
    const std::string name = path.filename().native();
    return spelled / listedName(spelled, name).value_or(name);
}

} // namespace quillorn::detail
