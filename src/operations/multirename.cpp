#include "operations/multirename.h"

#include "operations/appdiagnostics.h"
#include "operations/commandererror.h"
#include "operations/detail/folderwalk.h"
#include "operations/detail/logtext.h"
#include "operations/detail/sha256.h"
#include "platform/posix/posixerror.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <unordered_map>

namespace fs = std::filesystem;

namespace quillorn {

namespace {

std::string quoted(const std::string &name)
{
    return "\u2018" + name + "\u2019";
}

std::string asciiFolded(std::string name)
{
    for (char &c : name)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return name;
}

bool validName(const std::string &name)
{
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

bool refusedByWindowsVolumes(const std::string &name)
{
    constexpr std::string_view refused = "\\:*?\"<>|";
    const bool character = std::any_of(name.begin(), name.end(), [&](char c) {
        return static_cast<unsigned char>(c) < 0x20 || refused.find(c) != std::string_view::npos;
    });
    return character || name.back() == '.' || name.back() == ' ';
}

NameConflict ownConflict(const std::string &name, const VolumeNaming &naming)
{
    if (!validName(name))
        return NameConflict::invalid;
    if (name.size() > nameMax)
        return NameConflict::tooLong;
    if (naming.windowsCharacters && refusedByWindowsVolumes(name))
        return NameConflict::refusedByVolume;
    return NameConflict::none;
}

// One run of renames that depend on each other. A chain x1→x2→…→xk ends in a
// name no item has now (xk) and runs from its end: x(k-1)→xk first. A cycle
// x1→x2→…→xk→x1 has no free name and borrows a hidden one, T: x1→T, xk→x1,
// x(k-1)→xk, …, x2→x3, T→x2.
struct Component {
    std::vector<std::string> names;   // x1 … xk
    std::vector<std::size_t> changes; // the change that renames names[i]
    bool cycle = false;
    std::string hidden; // T, for a cycle
};

struct Step {
    std::string from;
    std::string to;
    std::size_t change; // what the step is part of, for messages
    bool final;         // the item gets its new name
};

std::vector<Step> stepsOf(const Component &component)
{
    const std::vector<std::string> &x = component.names;
    const std::size_t k = x.size();
    std::vector<Step> steps;
    if (!component.cycle) {
        for (std::size_t i = k - 1; i-- > 0;)
            steps.push_back({x[i], x[i + 1], component.changes[i], true});
        return steps;
    }
    steps.push_back({x[0], component.hidden, component.changes[0], false});
    for (std::size_t i = k; i-- > 1;)
        steps.push_back({x[i], x[(i + 1) % k], component.changes[i], true});
    steps.push_back({component.hidden, x[1], component.changes[0], true});
    return steps;
}

// The chains and cycles of the changes, in the order of their first change.
std::vector<Component> componentsOf(const fs::path &folder, const std::vector<NameChange> &changes)
{
    std::unordered_map<std::string, std::size_t> byOld, byNew;
    for (std::size_t i = 0; i < changes.size(); ++i) {
        byOld.emplace(changes[i].first, i);
        byNew.emplace(changes[i].second, i);
    }
    std::vector<bool> placed(changes.size(), false);
    std::vector<Component> components;
    for (std::size_t first = 0; first < changes.size(); ++first) {
        if (placed[first])
            continue;
        // Back to the start of the chain, or round to `first` again in a cycle.
        std::size_t start = first;
        bool cycle = false;
        for (;;) {
            const auto before = byNew.find(changes[start].first);
            if (before == byNew.end())
                break;
            start = before->second;
            if (start == first) {
                cycle = true;
                break;
            }
        }
        Component component;
        component.cycle = cycle;
        for (std::size_t at = start;;) {
            placed[at] = true;
            component.names.push_back(changes[at].first);
            component.changes.push_back(at);
            const auto next = byOld.find(changes[at].second);
            if (next == byOld.end()) {
                component.names.push_back(changes[at].second); // the free name it ends in
                break;
            }
            if (next->second == start)
                break;
            at = next->second;
        }
        if (cycle) {
            // Derived from the job, so that a run after a crash finds the same name.
            detail::Sha256 digest;
            digest.add(folder.native());
            for (const std::string &name : component.names) {
                digest.add(std::string_view("/", 1));
                digest.add(name);
            }
            component.hidden = ".quillorn-rename-" + digest.hex().substr(0, 32);
        }
        components.push_back(std::move(component));
    }
    return components;
}

std::optional<struct stat> attributes(const Folder &folder, const std::string &name)
{
    struct stat info {};
    if (::fstatat(folder.fd.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
        return std::nullopt;
    return info;
}

std::string identity(const struct stat &info)
{
    return std::to_string(info.st_dev) + ":" + std::to_string(info.st_ino);
}

// Every name in the folder (open for reading), without the attributes a
// listing would read: an item that goes meanwhile is no error here.
std::unordered_set<std::string> namesIn(const Folder &folder)
{
    detail::FileDescriptor reading(::openat(folder.fd.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!reading)
        throwPosixError(folder.shown);
    std::unique_ptr<DIR, int (*)(DIR *)> stream(::fdopendir(reading.get()), ::closedir);
    if (!stream)
        throwPosixError(folder.shown);
    reading.release();
    std::unordered_set<std::string> names;
    for (;;) {
        errno = 0;
        const dirent *entry = ::readdir(stream.get());
        if (!entry) {
            if (errno != 0)
                throwPosixError(folder.shown);
            return names;
        }
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            names.emplace(entry->d_name);
    }
}

std::chrono::system_clock::time_point modificationTime(const struct stat &info)
{
    using namespace std::chrono;
    return system_clock::time_point(duration_cast<system_clock::duration>(seconds(info.st_mtim.tv_sec) +
                                                                          nanoseconds(info.st_mtim.tv_nsec)));
}

// How many steps of the component an earlier run finished, from the names
// present: each step leaves exactly one of them missing, and a different one.
std::size_t stepsDone(const Folder &folder, const Component &component,
                      const std::vector<PublishIntent> &earlier)
{
    const std::vector<std::string> &x = component.names;
    const std::size_t k = x.size();
    std::vector<std::size_t> missing;
    for (std::size_t i = 0; i < k; ++i)
        if (!attributes(folder, x[i]))
            missing.push_back(i);
    if (!component.cycle)
        return missing.size() == 1 ? k - 1 - missing.front() : 0;
    const bool hidden = attributes(folder, component.hidden).has_value();
    if (hidden && missing.size() == 1)
        return missing.front() == 0 ? 1 : k + 1 - missing.front();
    if (hidden || !missing.empty())
        return 0;
    // Every name back and no hidden one: not begun, or done. Done moved the
    // first item to the second name, which the intent's identity tells.
    const std::optional<struct stat> second = attributes(folder, x[1]);
    const bool done = std::any_of(earlier.begin(), earlier.end(), [&](const PublishIntent &intent) {
        return intent.source == folder / x[0] && intent.staging == folder / component.hidden && second &&
               intent.copySeal == identity(*second);
    });
    return done ? k + 1 : 0;
}

// The reason of a failed rename, as the sentence's end.
std::string reason(const std::exception_ptr &error, const std::string &target)
{
    try {
        std::rethrow_exception(error);
    } catch (const PosixError &posix) {
        if (posix.code().value() == EEXIST)
            return "an item named " + quoted(target) + " already exists.";
        return posix.code().message() + ".";
    } catch (const std::exception &other) {
        return other.what();
    } catch (...) {
        return "an unexpected error occurred.";
    }
}

// Undoes the steps, last first; returns the items that could not be put back.
std::vector<std::string> putBack(const Folder &folder, const std::vector<Step> &done,
                                 const NoReplaceRename &rename)
{
    std::vector<std::string> stuck;
    for (auto step = done.rbegin(); step != done.rend(); ++step) {
        try {
            rename(folder, step->to, folder, step->from);
        } catch (const std::exception &error) {
            AppDiagnostics::shared().record(
                "RENAME PUT BACK FAILED path=" + detail::logPath(folder / step->to) +
                " name=" + detail::logText(step->from) + " error=" + AppDiagnostics::describe(error));
            stuck.push_back(step->to);
        }
    }
    return stuck;
}

// The new names on stable storage as far as the volume allows; the renames
// were the commit, so this never throws.
void flushNames(const fs::path &folder)
{
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        return;
    ::fsync(descriptor);
    ::close(descriptor);
}

void checkPlan(const std::vector<NameChange> &changes)
{
    std::unordered_set<std::string> olds, news;
    for (const NameChange &change : changes) {
        if (!validName(change.first))
            throw CommanderError(quoted(change.first) + " is not a valid name.");
        if (const NameConflict own = ownConflict(change.second, {}); own != NameConflict::none)
            throw CommanderError(conflictMessage(own, change));
        if (!olds.insert(change.first).second)
            throw CommanderError(quoted(change.first) + " is renamed twice.");
        if (!news.insert(change.second).second)
            throw CommanderError(conflictMessage(NameConflict::duplicate, change));
    }
}

} // namespace

RenameFolder readRenameFolder(const fs::path &folder, const std::vector<std::string> &items)
{
    RenameFolder result;
    const Folder open{detail::FileDescriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
                      folder};
    if (!open.fd)
        throwPosixError(folder);
    result.names = namesIn(open);
    result.naming = volumeNaming(folder);
    for (const std::string &item : items) {
        const std::optional<struct stat> info = attributes(open, item);
        result.modified.push_back(info ? modificationTime(*info)
                                       : std::chrono::system_clock::time_point::min());
    }
    return result;
}

std::vector<NameConflict> nameConflicts(const std::vector<NameChange> &changes, const RenameFolder &folder)
{
    const bool folding = folder.naming.ignoresCase;
    const auto key = [folding](const std::string &name) { return folding ? asciiFolded(name) : name; };
    std::unordered_set<std::string> freed, present;
    std::unordered_map<std::string, int> wanted;
    for (const NameChange &change : changes)
        if (change.first != change.second) {
            freed.insert(key(change.first));
            ++wanted[key(change.second)];
        }
    if (folding)
        for (const std::string &name : folder.names)
            present.insert(asciiFolded(name));
    const std::unordered_set<std::string> &names = folding ? present : folder.names;

    std::vector<NameConflict> conflicts(changes.size(), NameConflict::none);
    for (std::size_t i = 0; i < changes.size(); ++i) {
        const auto &[from, to] = changes[i];
        if (from == to)
            continue;
        const std::string wantedKey = key(to);
        if (NameConflict own = ownConflict(to, folder.naming); own != NameConflict::none)
            conflicts[i] = own;
        else if (wanted[wantedKey] > 1)
            conflicts[i] = NameConflict::duplicate;
        else if (names.count(wantedKey) && !freed.count(wantedKey))
            conflicts[i] = NameConflict::taken;
    }
    return conflicts;
}

std::string conflictMessage(NameConflict conflict, const NameChange &change)
{
    const std::string &name = change.second;
    switch (conflict) {
    case NameConflict::none:
        return {};
    case NameConflict::invalid:
        return name.empty() ? "The new name of " + quoted(change.first) + " is empty."
                            : quoted(name) + " is not a valid name.";
    case NameConflict::tooLong:
        return "The new name of " + quoted(change.first) + " is longer than " + std::to_string(nameMax) +
               " bytes.";
    case NameConflict::refusedByVolume:
        return quoted(name) + " holds a character or an ending that this volume refuses.";
    case NameConflict::duplicate:
        return "More than one item would be named " + quoted(name) + ".";
    case NameConflict::taken:
        return "An item named " + quoted(name) + " already exists.";
    }
    return {};
}

void renameAll(const fs::path &folder, const std::vector<NameChange> &changes, const NoReplaceRename &rename,
               OperationControl &control, const std::vector<PublishIntent> *earlier)
{
    std::vector<NameChange> plan;
    std::copy_if(changes.begin(), changes.end(), std::back_inserter(plan),
                 [](const NameChange &change) { return change.first != change.second; });
    checkPlan(plan);
    if (plan.empty())
        return;
    if (!earlier) {
        // Checked again as the folder is now: better refused whole than begun and put back.
        const std::vector<NameConflict> conflicts = nameConflicts(plan, readRenameFolder(folder));
        for (std::size_t i = 0; i < plan.size(); ++i)
            if (conflicts[i] != NameConflict::none)
                throw CommanderError(conflictMessage(conflicts[i], plan[i]));
    }
    const Folder open = detail::openFolderForNames(folder);
    control.totalItems(static_cast<std::int64_t>(plan.size()));

    // How far each got in a run a crash cut short; the cycles still to run are
    // announced together, so that a job of many pays for one durable record.
    const std::vector<Component> components = componentsOf(folder, plan);
    std::vector<std::size_t> already(components.size(), 0);
    std::vector<PublishIntent> intents;
    for (std::size_t c = 0; c < components.size(); ++c) {
        const Component &component = components[c];
        if (earlier)
            already[c] = stepsDone(open, component, *earlier);
        if (component.cycle && already[c] == 0) {
            const std::optional<struct stat> first = attributes(open, component.names[0]);
            intents.push_back({open / component.names[0],
                               open / component.hidden,
                               open / component.names[1],
                               {},
                               first ? identity(*first) : std::string()});
        }
    }
    control.publishing(intents);

    std::vector<Step> done;
    std::optional<std::size_t> failing; // the change whose step runs
    try {
        for (std::size_t c = 0; c < components.size(); ++c) {
            const Component &component = components[c];
            const std::vector<Step> steps = stepsOf(component);
            for (std::size_t i = 0; i < steps.size(); ++i) {
                failing = steps[i].change;
                if (i >= already[c]) {
                    // Between two steps of a cycle an item is under the hidden name.
                    if (!component.cycle || i == 0)
                        control.check();
                    control.detail("Renaming " + quoted(steps[i].from));
                    rename(open, steps[i].from, open, steps[i].to);
                }
                done.push_back(steps[i]);
                if (steps[i].final)
                    control.addItems(1);
            }
        }
    } catch (const CancellationError &) {
        throw;
    } catch (...) {
        const std::exception_ptr error = std::current_exception();
        const NameChange &failed = plan[failing.value_or(0)];
        std::string message = "Could not rename " + quoted(failed.first) + " to " + quoted(failed.second) +
                              ": " + reason(error, failed.second);
        const std::vector<std::string> stuck = putBack(open, done, rename);
        if (stuck.empty() && !done.empty())
            message += " The names already changed were put back.";
        else if (!stuck.empty())
            message += " " + std::to_string(stuck.size()) +
                       " item(s) could not be put back, the first now named " + quoted(stuck.front()) + ".";
        throw CommanderError(message);
    }
    flushNames(folder);
}

} // namespace quillorn
