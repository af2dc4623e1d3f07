#pragma once

#include "model/panemodel.h"
#include "platform/core/preferences.h"
#include "testtree.h"

#include <QTest>

namespace quillorn::test {

// Until the listing is applied and, where the folder can be watched, the watcher's first reload too.
inline bool settled(PaneModel &pane, bool watchable = true)
{
    return QTest::qWaitFor([&] { return !pane.loading() && (!watchable || pane.isWatching()); }, 10'000);
}

// A folder to list and a preferences file of its own; the metadata timer out of the way.
struct PaneFixture {
    TestTree tree, store;
    Preferences preferences{QString::fromStdString((store / "Quillorn.conf").string())};

    std::unique_ptr<PaneModel> pane(const std::filesystem::path &start, const QString &key = {})
    {
        return std::make_unique<PaneModel>(start, key, PaneModelOptions{&preferences, 3'600'000, {}});
    }
    // Listed (the fixture's folder unless told); a listing that never settles fails the test.
    std::unique_ptr<PaneModel> listed(const std::filesystem::path &start = {}, const QString &key = {})
    {
        auto made = pane(start.empty() ? tree.root() : start, key);
        if (!settled(*made))
            QTest::qFail("the listing never settled", __FILE__, __LINE__);
        return made;
    }
    Preferences reread() const { return Preferences(preferences.fileName()); }
    static QString text(const std::filesystem::path &path) { return QString::fromStdString(path.string()); }
};

inline void age(const std::filesystem::path &path, std::chrono::seconds by)
{
    std::filesystem::last_write_time(path, std::filesystem::file_time_type::clock::now() - by);
}

inline QStringList namesOf(const std::vector<FileEntry> &entries)
{
    QStringList names;
    for (const FileEntry &entry : entries)
        names.append(QString::fromStdString(entry.name().native()));
    return names;
}

} // namespace quillorn::test
