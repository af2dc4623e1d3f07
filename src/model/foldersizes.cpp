#include "model/foldersizes.h"

#include "operations/operationcontrol.h"
#include "platform/core/receiverguard.h"
#include "services/directorytools.h"

#include <algorithm>
#include <system_error>
#include <thread>

namespace quillorn {

namespace fs = std::filesystem;

FolderSizes::FolderSizes(FolderSizeCount count, QObject *parent)
    : QObject(parent), m_count(std::move(count)), m_guard(ReceiverGuard::create(this))
{
    if (!m_count)
        m_count = [](const std::vector<fs::path> &folders, OperationControl &control,
                     const FolderSizeProgress &progress) {
            return DirectoryTools::folderSizes(folders, control, progress);
        };
}

FolderSizes::~FolderSizes()
{
    m_guard->release();
    for (auto &[id, run] : m_runs)
        run.control->cancel();
}

void FolderSizes::count(const std::vector<fs::path> &folders)
{
    const std::uint64_t id = ++m_lastRun;
    Run run{std::make_shared<OperationControl>(), {}};
    for (const fs::path &folder : folders)
        if (m_sizes.try_emplace(folder.native(), Known{{0, false, true}, id}).second)
            run.folders.push_back(folder);
    if (run.folders.empty())
        return;

    try {
        std::thread([guard = m_guard, self = this, id, folders = run.folders, control = run.control,
                     count = m_count] {
            const auto progress = [&](const std::vector<FolderSize> &sizes,
                                      const std::vector<bool> &finished) {
                guard->post([self, id, sizes, finished] { self->apply(id, sizes, finished); });
            };
            try {
                std::vector<FolderSize> sizes = count(folders, *control, progress);
                guard->post([self, id, sizes = std::move(sizes)] { self->apply(id, sizes, {}); });
            } catch (...) {
                guard->post([self, id] { self->drop(id); }); // cancelled, mostly: already dropped
            }
        }).detach();
    } catch (const std::system_error &) {
        for (const fs::path &folder : run.folders)
            m_sizes.erase(folder.native());
        return;
    }
    const bool wasCounting = counting();
    m_runs.emplace(id, std::move(run));
    Q_EMIT sizesChanged();
    if (!wasCounting)
        Q_EMIT countingChanged();
}

void FolderSizes::cancel()
{
    if (m_runs.empty())
        return;
    for (auto &[id, run] : m_runs)
        run.control->cancel();
    m_runs.clear();
    std::erase_if(m_sizes, [](const auto &known) { return known.second.size.counting; });
    Q_EMIT sizesChanged();
    Q_EMIT countingChanged();
}

void FolderSizes::clear()
{
    cancel();
    if (m_sizes.empty())
        return;
    m_sizes.clear();
    Q_EMIT sizesChanged();
}

void FolderSizes::keepOnly(const std::function<bool(const fs::path &)> &listed)
{
    if (std::erase_if(m_sizes, [&](const auto &known) { return !listed(fs::path(known.first)); }) == 0)
        return;
    // A count none of whose folders is listed any more is not worth its time.
    for (auto run = m_runs.begin(); run != m_runs.end();) {
        const auto wanted = [&, id = run->first](const fs::path &folder) {
            const auto known = m_sizes.find(folder.native());
            return known != m_sizes.end() && known->second.run == id;
        };
        const auto next = std::next(run);
        if (std::none_of(run->second.folders.begin(), run->second.folders.end(), wanted)) {
            run->second.control->cancel();
            endRun(run);
        }
        run = next;
    }
    Q_EMIT sizesChanged();
}

const FolderSizes::Size *FolderSizes::find(const fs::path &folder) const
{
    const auto found = m_sizes.find(folder.native());
    return found == m_sizes.end() ? nullptr : &found->second.size;
}

void FolderSizes::apply(std::uint64_t id, const std::vector<FolderSize> &sizes,
                        const std::vector<bool> &finished)
{
    const bool done = finished.empty();
    const auto run = m_runs.find(id);
    if (run == m_runs.end())
        return; // cancelled meanwhile
    bool changed = false;
    for (std::size_t index = 0; index < run->second.folders.size() && index < sizes.size(); ++index) {
        const auto known = m_sizes.find(run->second.folders[index].native());
        if (known == m_sizes.end() || known->second.run != id)
            continue; // forgotten meanwhile, or counted again since
        const bool counting = !done && !(index < finished.size() && finished[index]);
        const Size size{sizes[index].bytes, sizes[index].partial, counting};
        if (known->second.size != size) {
            known->second.size = size;
            changed = true;
        }
    }
    if (done)
        endRun(run);
    if (changed)
        Q_EMIT sizesChanged();
}

// A count that failed: its folders have no size after all.
void FolderSizes::drop(std::uint64_t id)
{
    const auto run = m_runs.find(id);
    if (run == m_runs.end())
        return;
    std::erase_if(m_sizes, [id](const auto &known) { return known.second.run == id; });
    endRun(run);
    Q_EMIT sizesChanged();
}

void FolderSizes::endRun(std::map<std::uint64_t, Run>::iterator run)
{
    m_runs.erase(run);
    if (m_runs.empty())
        Q_EMIT countingChanged();
}

} // namespace quillorn
