#pragma once

#include <grp.h>
#include <sys/types.h>
#include <unistd.h>

#include <string>

namespace quillorn::test {

// While it lives, file access is checked as the unprivileged user "nobody"
// (effective ids only, so the process can switch back). Not running as root
// needs no switch: permissions already apply. `skipReason` is set when the
// machine refuses the switch.
class AsNobody {
public:
    static constexpr uid_t user = 65534;
    static constexpr gid_t group = 65534;

    AsNobody()
    {
        if (::geteuid() != 0)
            return;
        if (::setegid(group) != 0 || ::seteuid(user) != 0) {
            ::setegid(0);
            skipReason = "cannot switch to the user nobody here";
            return;
        }
        m_switched = true;
    }
    ~AsNobody()
    {
        if (m_switched) {
            [[maybe_unused]] const int user = ::seteuid(0);
            [[maybe_unused]] const int group = ::setegid(0);
        }
    }
    AsNobody(const AsNobody &) = delete;
    AsNobody &operator=(const AsNobody &) = delete;

    std::string skipReason;

private:
    bool m_switched = false;
};

} // namespace quillorn::test
