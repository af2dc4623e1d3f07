#include "app/functionkeybar.h"

#include "app/commandtable.h"
#include "model/commanderthemecolours.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <algorithm>

namespace quillorn {

FunctionKeyBar::FunctionKeyBar(const CommandTable &commands, QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("functionKeyBar"));
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    const QFont mono = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    std::vector<const Command *> keyed;
    for (const Command &command : commands.commands())
        if (command.functionKey > 0)
            keyed.push_back(&command);
    std::stable_sort(keyed.begin(), keyed.end(),
                     [](const Command *a, const Command *b) { return a->functionKey < b->functionKey; });
    for (const Command *command : keyed) {
        const int number = command->functionKey;
        auto *button = new QPushButton(this);
        button->setObjectName(QStringLiteral("F%1").arg(number));
        button->setFocusPolicy(Qt::NoFocus);
        button->setAutoDefault(false);
        button->setMinimumHeight(26);
        // A push button draws one colour of text; two labels inside give "F5"
        // its accent colour beside the plain label.
        auto *inner = new QHBoxLayout(button);
        inner->setContentsMargins(8, 2, 8, 2);
        inner->setSpacing(6);
        auto *key = new QLabel(QStringLiteral("F%1").arg(number), button);
        key->setObjectName(QStringLiteral("functionKeyNumber"));
        key->setFont(mono);
        auto *label = new QLabel(command->text, button);
        for (QLabel *part : {key, label})
            part->setAttribute(Qt::WA_TransparentForMouseEvents);
        inner->addStretch(1);
        inner->addWidget(key);
        inner->addWidget(label);
        inner->addStretch(1);
        button->setAccessibleName(key->text() + QLatin1Char(' ') + label->text());
        button->setMinimumWidth(inner->sizeHint().width());
        connect(button, &QPushButton::clicked, this, [command] {
            if (command->isEnabled() && command->invoke)
                command->invoke({});
        });
        layout->addWidget(button, 1);
        m_buttons.push_back(button);
        m_numbers.push_back(key);
    }
    setTheme(CommanderThemeKey::defaultValue);
}

void FunctionKeyBar::setTheme(CommanderTheme theme)
{
    const CommanderThemeColours palette = colours(theme);
    // Under a style sheet the labels draw in the sheet's colours, not their palettes'.
    setStyleSheet(QStringLiteral("QPushButton { background: %1; border: 1px solid %2; border-radius: 4px; }"
                                 "QPushButton:hover { border-color: %3; }"
                                 "QPushButton:pressed { background: %4; }"
                                 "QLabel#functionKeyNumber { color: %3; }")
                      .arg(palette.button.name(), palette.border.name(), palette.accent.name(),
                           palette.selection.name()));
}

} // namespace quillorn
