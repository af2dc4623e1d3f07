#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <sys/stat.h>

namespace quillorn {

// One piece of metadata that could not be carried over. step is "copyfile" for the
// owner, extended attributes and ACLs taken together, "permissions" for the mode
// and "modificationDate" for the times.
struct MetadataProblem {
    std::string step;
    std::error_code error;
};

// Gives target the owner, extended attributes (ACLs included), mode and access and
// modification times that source had when it was examined (before, an lstat of
// source). Links are never followed. Each step is tried even when an earlier one
// failed; the failures come back in order. Never throws.
std::vector<MetadataProblem> copyMetadata(const std::filesystem::path &source,
                                          const std::filesystem::path &target, const struct stat &before);

// The same for sourceName in the open folder sourceFolder and targetName in
// targetFolder, so neither item is looked up by path again.
std::vector<MetadataProblem> copyMetadata(int sourceFolder, const std::string &sourceName, int targetFolder,
                                          const std::string &targetName, const struct stat &before);

// The same for a target that is an open file with no name yet (createUnnamedFile).
std::vector<MetadataProblem> copyMetadataToFile(int sourceFolder, const std::string &sourceName,
                                                int targetFile, const struct stat &before);

// Gives targetName in targetFolder, never followed, the access and modification
// times of before. A symbolic link gets nothing else: Linux has no mode for a
// link, and its owner and attributes are left as created.
std::optional<MetadataProblem> copyTimes(int targetFolder, const std::string &targetName,
                                         const struct stat &before);

} // namespace quillorn
