#pragma once

// A pane on a real temporary folder drawn by a shown FilePane, shared by the
// pane view tests.
#include "app/detail/panetablemodel.h"
#include "app/detail/panetableview.h"
#include "app/filepane.h"
#include "model/panemodel.h"
#include "platform/core/preferences.h"

#include "testtree.h"

#include <QHeaderView>
#include <QSignalSpy>
#include <QTest>

#include <memory>
#include <string>
#include <vector>

namespace quillorn::test {

namespace fs = std::filesystem;

// One pane on a real temporary folder, drawn by a shown FilePane, with its
// preferences in a file of its own.
struct PaneFixture {
    explicit PaneFixture(const fs::path &folder, const fs::path &prefsFolder)
        : preferences(QString::fromStdString((prefsFolder / "prefs.ini").string()))
    {
        PaneModelOptions options;
        options.preferences = &preferences;
        options.metadataIntervalMs = 3'600'000;
        options.applicationIsActive = [] { return false; };
        pane = std::make_unique<PaneModel>(folder, QString(), options);
        QSignalSpy listed(pane.get(), &PaneModel::listingApplied);
        view = std::make_unique<FilePane>(*pane);
        view->activate = [this] { ++activations; };
        view->open = [this](const FileEntry &entry) { opened.push_back(entry); };
        view->drop = [this](const std::vector<fs::path> &files) { dropped.push_back(files); };
        view->resize(640, 520);
        view->show();
        QVERIFY(QTest::qWaitForWindowExposed(view.get()));
        if (pane->loading())
            QVERIFY(listed.wait(5000));
    }

    detail::PaneTableView *list() const { return view->listView(); }
    detail::PaneTableModel *model() const { return view->listModel(); }
    int rowOfName(const std::string &name) const
    {
        const auto row = pane->visibleIndexOf(pane->directory() / name);
        return row ? *row : -1;
    }
    QPoint rowPoint(int row) const { return list()->visualRect(model()->index(row, 0)).center(); }
    void click(int row, Qt::KeyboardModifiers modifiers = Qt::NoModifier) const
    {
        QTest::mouseClick(list()->viewport(), Qt::LeftButton, modifiers, rowPoint(row));
    }
    fs::path urlAt(int row) const { return pane->visible().at(std::size_t(row)).url(); }
    void pressHeader(int section) const
    {
        QHeaderView *header = list()->horizontalHeader();
        const QPoint point(header->sectionViewportPosition(section) + header->sectionSize(section) / 2,
                           header->height() / 2);
        QTest::mouseClick(header->viewport(), Qt::LeftButton, Qt::NoModifier, point);
    }
    QString headerText(int section) const
    {
        return model()->headerData(section, Qt::Horizontal, Qt::DisplayRole).toString();
    }
    template <typename T> T *child(const char *name) const
    {
        return view->findChild<T *>(QString::fromLatin1(name));
    }
    bool relist() const
    {
        QSignalSpy listed(pane.get(), &PaneModel::listingApplied);
        pane->refresh();
        return listed.wait(5000);
    }

    Preferences preferences;
    std::unique_ptr<PaneModel> pane;
    std::unique_ptr<FilePane> view;
    int activations = 0;
    std::vector<FileEntry> opened;
    std::vector<std::vector<fs::path>> dropped;
};

// Six files f0 ... f5 and one folder, so the listing is: dir, f0, ..., f5.
inline void fillSix(TestTree &tree)
{
    tree.folder("dir");
    for (int i = 0; i < 6; ++i)
        tree.file("files/f" + std::to_string(i), std::string(std::size_t(i * 10), 'x'));
}

} // namespace quillorn::test
