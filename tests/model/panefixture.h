#pragma once

#include "model/panemodel.h"
#include "platform/core/preferences.h"
#include "testtree.h"

#include <QTest>
#include <memory>

namespace quillorn::test {

// Waits until the pane's listing is applied and, for a folder that can be
// watched, the reload the watcher asks for when it starts has been applied too.
inline bool settled(PaneModel &pane, bool watchable = true)
{
    return QTest::qWaitFor([&] { return !pane.loading() && (!watchable || pane.isWatching()); }, 10'000);
}

// A folder to list and a preferences file of its own, with the metadata timer
// out of the way unless a test asks for it.
struct PaneFixture {
    TestTree tree, store;
    Preferences preferences{QString::fromStdString((store / "Quillorn.conf").string())};

    std::unique_ptr<PaneModel> pane(const std::filesystem::path &start, const QString &key = {},
                                    int metadataIntervalMs = 3'600'000, std::function<bool()> active = {})
    {
        return std::make_unique<PaneModel>(
            start, key, PaneModelOptions{&preferences, metadataIntervalMs, std::move(active)});
    }
    // On the fixture's folder, listed; a listing that never settles fails the test.
    std::unique_ptr<PaneModel> listed(const QString &key = {})
    {
        auto made = pane(tree.root(), key);
        if (!settled(*made))
            QTest::qFail("the listing never settled", __FILE__, __LINE__);
        return made;
    }
    Preferences reread() const { return Preferences(preferences.fileName()); }
};

inline QStringList namesOf(const std::vector<FileEntry> &entries)
{
    QStringList names;
    for (const FileEntry &entry : entries)
        names.append(QString::fromStdString(entry.name().native()));
    return names;
}

inline QString text(const std::filesystem::path &path)
{
    return QString::fromStdString(path.string());
}

inline void age(const std::filesystem::path &path, std::chrono::seconds by)
{
    std::filesystem::last_write_time(path, std::filesystem::file_time_type::clock::now() - by);
}

} // namespace quillorn::test
