#pragma once

#include <string>

namespace quillorn {

// The hidden name an item is written under before it takes its final one:
// ".quillorn-" + a random version-4 UUID in upper case. Whatever writes one
// records it in the staging journal first, so that the next start removes one
// that a killed process left behind.
std::string stagingName();

} // namespace quillorn
