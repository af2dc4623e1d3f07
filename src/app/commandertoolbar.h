#pragma once

#include "model/commandertheme.h"

#include <QWidget>
#include <filesystem>
#include <functional>
#include <vector>

class QLabel;
class QToolButton;

namespace quillorn {

class CommanderModel;

// The row above the panes: Search, Compare, Info, Open, Connect, Copy refs,
// Paste, New tab and Close, then the active-pane label. Buttons that need items
// to act on are disabled while the active pane has none, Close while it has one
// tab. The buttons never take the keyboard focus, so keys stay with the panes.
// Where the labels do not fit (a narrow window), the buttons show their symbols
// alone, with the label as tooltip, rather than cut labels.
class CommanderToolBar : public QWidget {
    Q_OBJECT
public:
    using OpenFile = std::function<void(const std::filesystem::path &)>;

    // openFile hands one item to its default application.
    CommanderToolBar(CommanderModel &model, OpenFile openFile, QWidget *parent = nullptr);

    void setTheme(CommanderTheme theme);
    QToolButton *button(const QString &label) const;
    QLabel *activePaneLabel() const { return m_activeLabel; }

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void fitLabels();
    QToolButton *addButton(const QString &label, int symbol, std::function<void()> action);
    void followPanes();
    void updateState();

    CommanderModel &m_model;
    OpenFile m_openFile;
    std::vector<std::pair<QToolButton *, int>> m_buttons;
    QLabel *m_activeLabel = nullptr;
};

} // namespace quillorn
