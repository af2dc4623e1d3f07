#pragma once

#include "model/commandertheme.h"

#include <QStringList>
#include <QWidget>
#include <vector>

class QLabel;
class QPushButton;

namespace quillorn {

class CommanderModel;

// The bar of ten buttons at the bottom: "F" and the number in the accent
// colour, then the command's label. Pressing button n runs the model's command n.
class FunctionKeyBar : public QWidget {
    Q_OBJECT
public:
    explicit FunctionKeyBar(CommanderModel &model, QWidget *parent = nullptr);

    void setTheme(CommanderTheme theme);
    QPushButton *button(int number) const { return m_buttons.at(std::size_t(number - 1)); }

    static inline const QStringList actions{"Help", "Rename",     "View",  "Edit",    "Copy",
                                            "Move", "New folder", "Trash", "Refresh", "Quit"};

private:
    std::vector<QPushButton *> m_buttons;
    std::vector<QLabel *> m_numbers;
};

} // namespace quillorn
