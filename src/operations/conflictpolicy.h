#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace quillorn {

// What a transfer does when a name already exists at the destination.
enum class ConflictPolicy { stop, skip, keepBoth, replace };

inline constexpr std::array<ConflictPolicy, 4> allConflictPolicies{
    ConflictPolicy::stop, ConflictPolicy::skip, ConflictPolicy::keepBoth, ConflictPolicy::replace};

// The raw value is also the label in the transfer sheet and the value logged behind policy=.
constexpr std::string_view rawValue(ConflictPolicy policy)
{
    switch (policy) {
    case ConflictPolicy::stop:
        return "Stop";
    case ConflictPolicy::skip:
        return "Skip";
    case ConflictPolicy::keepBoth:
        return "Keep both";
    case ConflictPolicy::replace:
        return "Replace (old item to Trash)";
    }
    return "Stop";
}

// Exact, case-sensitive match of the whole raw value.
constexpr std::optional<ConflictPolicy> conflictPolicyFromRawValue(std::string_view text)
{
    for (ConflictPolicy policy : allConflictPolicies)
        if (rawValue(policy) == text)
            return policy;
    return std::nullopt;
}

} // namespace quillorn
