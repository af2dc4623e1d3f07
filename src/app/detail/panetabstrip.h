#pragma once

#include "model/commanderthemecolours.h"

#include <QList>
#include <QWidget>

#include <filesystem>

class QHBoxLayout;
class QScrollArea;
class QToolButton;

namespace quillorn {
class PaneModel;
}

namespace quillorn::detail {

// One button per tab of the pane, labelled with the tab folder's name ("/" for
// the root), scrollable sideways; then "New tab" and "Close tab".
class PaneTabStrip : public QWidget {
    Q_OBJECT
public:
    explicit PaneTabStrip(PaneModel &pane, QWidget *parent = nullptr);

    void setColours(const CommanderThemeColours &colours);
    QList<QToolButton *> tabButtons() const;

private:
    void rebuild();
    void restyle();

    PaneModel &m_pane;
    CommanderThemeColours m_colours;
    QScrollArea *m_scroll = nullptr;
    QWidget *m_tabs = nullptr;
    QHBoxLayout *m_tabLayout = nullptr;
    QList<QToolButton *> m_buttons;
    QToolButton *m_newTab = nullptr;
    QToolButton *m_closeTab = nullptr;
};

// The last path component of a folder, or "/" for the root.
QString folderLabel(const std::filesystem::path &folder);

} // namespace quillorn::detail
