#pragma once

#include "model/commandertheme.h"

#include <QStringList>
#include <QWidget>
#include <vector>

class QLabel;
class QPushButton;

namespace quillorn {

class CommandTable;

// The bar of buttons at the bottom, one for each command of the window's table
// with a function key, in key order: "F" and the number in the accent colour,
// then the command's text. Pressing a button runs its command.
class FunctionKeyBar : public QWidget {
    Q_OBJECT
public:
    // `commands` must outlive the bar.
    explicit FunctionKeyBar(const CommandTable &commands, QWidget *parent = nullptr);

    void setTheme(CommanderTheme theme);
    QPushButton *button(int number) const { return m_buttons.at(std::size_t(number - 1)); }

    static inline const QStringList actions{"Help", "Rename",     "View",  "Edit",    "Copy",
                                            "Move", "New folder", "Trash", "Refresh", "Quit"};

private:
    std::vector<QPushButton *> m_buttons;
    std::vector<QLabel *> m_numbers;
};

} // namespace quillorn
