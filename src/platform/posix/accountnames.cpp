#include "platform/posix/accountnames.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace quillorn {

namespace {

// getpwuid_r and getgrgid_r want a buffer; ERANGE asks for a larger one.
template <typename Record, typename Lookup>
std::optional<std::string> lookUp(Lookup lookup, const char *(*name)(const Record &))
{
    std::vector<char> buffer(1024);
    for (;;) {
        Record record{};
        Record *found = nullptr;
        const int error = lookup(&record, buffer.data(), buffer.size(), &found);
        if (error == ERANGE && buffer.size() < (1u << 20)) {
            buffer.resize(buffer.size() * 4);
            continue;
        }
        if (error != 0 || !found)
            return std::nullopt;
        return std::string(name(record));
    }
}

} // namespace

std::optional<std::string> userName(uid_t user)
{
    return lookUp<passwd>([user](passwd *record, char *buffer, std::size_t size,
                                 passwd **found) { return ::getpwuid_r(user, record, buffer, size, found); },
                          [](const passwd &record) -> const char * { return record.pw_name; });
}

std::optional<std::string> groupName(gid_t group)
{
    return lookUp<struct group>(
        [group](struct group *record, char *buffer, std::size_t size, struct group **found) {
            return ::getgrgid_r(group, record, buffer, size, found);
        },
        [](const struct group &record) -> const char * { return record.gr_name; });
}

} // namespace quillorn
