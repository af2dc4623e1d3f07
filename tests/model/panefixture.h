#pragma once

#include "model/panemodel.h"
#include "platform/core/preferences.h"
#include "testtree.h"

#include <QTest>
#include <memory>

namespace quillorn::test {

// A preferences file of its own and a helper to build panes on it, with the
// metadata timer out of the way unless a test asks for it.
class PaneFixture {
public:
    PaneFixture() : preferences(QString::fromStdString((store / "Quillorn.conf").string())) {}

    std::unique_ptr<PaneModel> pane(const std::filesystem::path &start, const QString &key = {},
                                    int metadataIntervalMs = 3'600'000, std::function<bool()> active = {})
    {
        PaneModelOptions options;
        options.preferences = &preferences;
        options.metadataIntervalMs = metadataIntervalMs;
        options.applicationIsActive = active ? std::move(active) : [] { return true; };
        return std::make_unique<PaneModel>(start, key, std::move(options));
    }

    TestTree store;
    Preferences preferences;
};

// Waits until the pane's listing is applied and, for a folder that can be
// watched, the reload the watcher asks for when it starts has been applied too.
inline bool settled(PaneModel &pane, bool watchable = true)
{
    return QTest::qWaitFor([&] { return !pane.loading() && (!watchable || pane.isWatching()); }, 10'000);
}

inline QStringList namesOf(const std::vector<FileEntry> &entries)
{
    QStringList names;
    for (const FileEntry &entry : entries)
        names.append(QString::fromStdString(entry.name().native()));
    return names;
}

} // namespace quillorn::test
