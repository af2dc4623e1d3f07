// A command-line front to the multi-rename for bench/multirename.sh; times are
// taken inside the process around the work alone, not the program's start.
//
//   rename_tool make FOLDER COUNT   COUNT empty files "file-N.txt" (N from 1)
//   rename_tool run FOLDER KIND     renames every file of FOLDER as one queue job:
//     pattern  file-N.txt → Photo N.jpg, made by the sheet's rules ("Photo [C].jpg"
//              over the names in order), with the preview's conflict check timed too
//     shift    file-N.txt → file-(N+1).txt: one chain as long as the folder
//     swap     file-1.txt ↔ file-2.txt, …: a cycle through a hidden name per pair
//     swap-journaled  the same with the queue's journal (in FOLDER/../state) making
//              each cycle's intent durable before the cycle starts
#include "model/renamepattern.h"
#include "operations/multirename.h"
#include "operations/operationcontrol.h"
#include "services/jobjournal.h"
#include "services/queuejob.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

using namespace quillorn;
namespace fs = std::filesystem;

namespace {

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string numbered(long long n)
{
    return "file-" + std::to_string(n) + ".txt";
}

int make(const fs::path &folder, long long count)
{
    fs::create_directories(folder);
    for (long long n = 1; n <= count; ++n)
        std::ofstream(folder / numbered(n));
    return 0;
}

int run(const fs::path &folder, const std::string &kind)
{
    long long count = 0;
    for ([[maybe_unused]] const auto &item : fs::directory_iterator(folder))
        ++count;
    MultiRenameJob job{folder, {}};
    double planMs = 0;
    if (kind == "pattern") {
        RenameRules rules;
        rules.pattern = "Photo [C].jpg";
        std::vector<std::string> names;
        for (long long n = 1; n <= count; ++n)
            names.push_back(numbered(n));
        const auto start = std::chrono::steady_clock::now();
        const RenameFolder read = readRenameFolder(folder, names);
        const RenamePattern pattern(rules);
        for (std::size_t i = 0; i < names.size(); ++i)
            job.names.emplace_back(names[i], pattern.newName(names[i], i, read.modified[i]));
        const std::vector<NameConflict> conflicts = nameConflicts(job.names, read);
        planMs = secondsSince(start) * 1000;
        for (NameConflict conflict : conflicts)
            if (conflict != NameConflict::none)
                return std::fprintf(stderr, "rename_tool: the plan has a conflict\n"), 1;
    } else if (kind == "shift") {
        for (long long n = 1; n <= count; ++n)
            job.names.emplace_back(numbered(n), numbered(n + 1));
    } else if (kind == "swap" || kind == "swap-journaled") {
        for (long long n = 1; n + 1 <= count; n += 2) {
            job.names.emplace_back(numbered(n), numbered(n + 1));
            job.names.emplace_back(numbered(n + 1), numbered(n));
        }
    } else {
        return std::fprintf(stderr, "rename_tool: unknown kind %s\n", kind.c_str()), 2;
    }
    OperationControl control;
    std::optional<JobJournal> journal;
    const QUuid id = QUuid::createUuid();
    if (kind == "swap-journaled") {
        journal.emplace(folder.parent_path() / "state");
        journal->save({{id, "Multi-rename", job, {}}});
        journal->flush();
        control.onPublishing(
            [&](const std::vector<PublishIntent> &intents) { journal->publishing(id, intents); });
    }
    const auto start = std::chrono::steady_clock::now();
    JobRunner().run(job, control);
    std::printf("%s items=%zu plan_ms=%.1f job_seconds=%.3f\n", kind.c_str(), job.names.size(), planMs,
                secondsSince(start));
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "make" && argc == 4)
        return make(argv[2], std::atoll(argv[3]));
    if (command == "run" && argc == 4)
        return run(argv[2], argv[3]);
    std::fprintf(stderr, "usage: rename_tool make FOLDER COUNT | run FOLDER pattern|shift|swap\n");
    return 2;
}
