#pragma once

#include "model/commandertheme.h"

#include <QWidget>
#include <vector>

class QLabel;
class QToolButton;

namespace quillorn {

class CommanderModel;
class CommandTable;
struct Command;

// The row above the panes: a button for each command of the window's table that
// has a tool bar symbol (Search, Compare, Info, Open, Connect, Copy refs, Paste,
// New tab and Close), then the active-pane label. A button is enabled while its
// command is, re-checked whenever either pane changes. The buttons never take
// the keyboard focus, so keys stay with the panes.
// Where the labels do not fit (a narrow window), the buttons show their symbols
// alone, with the label as tooltip, rather than cut labels.
class CommanderToolBar : public QWidget {
    Q_OBJECT
public:
    // `commands` must outlive the tool bar.
    CommanderToolBar(CommanderModel &model, const CommandTable &commands, QWidget *parent = nullptr);

    void setTheme(CommanderTheme theme);
    QToolButton *button(const QString &label) const;
    QLabel *activePaneLabel() const { return m_activeLabel; }

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void fitLabels();
    void addButton(const Command &command);
    void followPanes();
    void updateState();

    CommanderModel &m_model;
    struct Button {
        QToolButton *button;
        const Command *command;
    };
    std::vector<Button> m_buttons;
    QLabel *m_activeLabel = nullptr;
};

} // namespace quillorn
