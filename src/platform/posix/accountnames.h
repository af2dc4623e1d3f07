#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace quillorn {

// The account names of a user and a group id (the passwd and group databases,
// so NSS sources count too); none when the id has no entry.
std::optional<std::string> userName(uid_t user);
std::optional<std::string> groupName(gid_t group);

} // namespace quillorn
