#pragma once

#include <filesystem>
#include <string>

namespace quillorn {

// The hidden name an item is written under before it takes its final one:
// ".quillorn-" + a random version-4 UUID in upper case. Whatever writes one
// records it in the staging journal first, so that the next start removes one
// that a killed process left behind.
std::string stagingName();

// Whether path is absolute, normal and ends in exactly such a name: what a
// journal may remove, whatever else a damaged one says.
bool isStagingPath(const std::filesystem::path &path);

} // namespace quillorn
