#pragma once

#include <grp.h>
#include <sys/types.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace quillorn::test {

// While it lives, file access is checked as the unprivileged user "nobody"
// (effective ids only, so the process can switch back), without root's
// supplementary groups, which would still open group-readable items. Not running as root
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
        const int count = ::getgroups(0, nullptr);
        m_groups.resize(count > 0 ? std::size_t(count) : 0);
        if (count < 0 || ::getgroups(count, m_groups.data()) != count || ::setgroups(0, nullptr) != 0 ||
            ::setegid(group) != 0 || ::seteuid(user) != 0) {
            ::setegid(0);
            [[maybe_unused]] const int restored = ::setgroups(m_groups.size(), m_groups.data());
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
            [[maybe_unused]] const int groups = ::setgroups(m_groups.size(), m_groups.data());
        }
    }
    AsNobody(const AsNobody &) = delete;
    AsNobody &operator=(const AsNobody &) = delete;

    std::string skipReason;

private:
    bool m_switched = false;
    std::vector<gid_t> m_groups;
};

} // namespace quillorn::test
