#pragma once

#include <exception>
#include <string>

namespace quillorn {

// The text a user is shown for an error: a CommanderError's sentence as it
// stands; a system error as "PATH: REASON" when it names an item (so "Permission
// denied" says of what), else the reason alone; any other error's what().
std::string userFacingText(const std::exception &error);

} // namespace quillorn
