#include "app/commandertoolbar.h"

#include "app/commandtable.h"
#include "app/detail/toolbarsymbols.h"
#include "model/commandermodel.h"
#include "model/commanderthemecolours.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QResizeEvent>
#include <QToolButton>

namespace quillorn {

using detail::ToolbarSymbol;

CommanderToolBar::CommanderToolBar(CommanderModel &model, const CommandTable &commands, QWidget *parent)
    : QWidget(parent), m_model(model)
{
    setObjectName(QStringLiteral("toolBar"));
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    for (const Command &command : commands.commands())
        if (command.toolBarSymbol >= 0)
            addButton(command);
    layout->addStretch(1);

    m_activeLabel = new QLabel(this);
    m_activeLabel->setObjectName(QStringLiteral("activePaneLabel"));
    QFont caption = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    caption.setPointSizeF(caption.pointSizeF() * 0.85);
    m_activeLabel->setFont(caption);
    // Room for the longer of the two texts, so that neither is ever cut.
    m_activeLabel->setMinimumWidth(
        QFontMetrics(caption).horizontalAdvance(QStringLiteral("RIGHT PANE ACTIVE")) + 2);
    layout->addWidget(m_activeLabel);

    connect(&m_model, &CommanderModel::activeLeftChanged, this, &CommanderToolBar::updateState);
    followPanes();
    setTheme(CommanderThemeKey::defaultValue);
    updateState();
}

void CommanderToolBar::addButton(const Command &command)
{
    auto *button = new QToolButton(this);
    button->setText(command.text);
    button->setToolTip(command.shownKey().isEmpty()
                           ? command.text
                           : command.text + QStringLiteral(" (") + command.shownKey() + ')');
    button->setObjectName(command.text);
    button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    button->setFocusPolicy(Qt::NoFocus);
    connect(button, &QToolButton::clicked, this, [&command] {
        if (command.isEnabled() && command.invoke)
            command.invoke({});
    });
    static_cast<QHBoxLayout *>(layout())->addWidget(button);
    m_buttons.push_back({button, &command});
}

void CommanderToolBar::followPanes()
{
    // Either pane can become the active one, so both are followed.
    for (PaneModel *pane : {&m_model.left(), &m_model.right()}) {
        connect(pane, &PaneModel::selectionChanged, this, &CommanderToolBar::updateState);
        connect(pane, &PaneModel::cursorChanged, this, &CommanderToolBar::updateState);
        connect(pane, &PaneModel::visibleChanged, this, &CommanderToolBar::updateState);
        connect(pane, &PaneModel::tabsChanged, this, &CommanderToolBar::updateState);
    }
}

QToolButton *CommanderToolBar::button(const QString &label) const
{
    for (const Button &entry : m_buttons)
        if (entry.button->text() == label)
            return entry.button;
    return nullptr;
}

void CommanderToolBar::updateState()
{
    for (const Button &entry : m_buttons)
        entry.button->setEnabled(entry.command->isEnabled());
    m_activeLabel->setText(m_model.activeLeft() ? QStringLiteral("LEFT PANE ACTIVE")
                                                : QStringLiteral("RIGHT PANE ACTIVE"));
}

void CommanderToolBar::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    fitLabels();
}

void CommanderToolBar::fitLabels()
{
    // Measured with labels whatever is shown now, so the choice cannot flicker.
    auto *row = static_cast<QHBoxLayout *>(layout());
    int needed =
        m_activeLabel->minimumWidth() + row->contentsMargins().left() + row->contentsMargins().right();
    for (const auto &[button, command] : m_buttons) {
        const Qt::ToolButtonStyle shown = button->toolButtonStyle();
        button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
        needed += button->sizeHint().width() + row->spacing();
        button->setToolButtonStyle(shown);
    }
    const Qt::ToolButtonStyle style =
        needed <= width() ? Qt::ToolButtonTextBesideIcon : Qt::ToolButtonIconOnly;
    for (const Button &entry : m_buttons)
        entry.button->setToolButtonStyle(style);
}

void CommanderToolBar::setTheme(CommanderTheme theme)
{
    const CommanderThemeColours palette = colours(theme);
    const ThemeTextColours text = textColours(palette);
    for (const Button &entry : m_buttons)
        entry.button->setIcon(
            detail::toolbarIcon(ToolbarSymbol(entry.command->toolBarSymbol), palette.accent, text.disabled));
    setStyleSheet(QStringLiteral("QToolButton { background: %1; color: %4; border: 1px solid %2;"
                                 " border-radius: 5px; padding: 3px 8px; }"
                                 "QToolButton:hover { border-color: %3; }"
                                 "QToolButton:disabled { color: %5; border-color: %6; }")
                      .arg(palette.button.name(), palette.border.name(), palette.accent.name(),
                           text.primary.name(), text.disabled.name(),
                           blend(palette.border, palette.button, 0.4).name()));
    QPalette labelPalette = m_activeLabel->palette();
    labelPalette.setColor(QPalette::WindowText, palette.accent);
    m_activeLabel->setPalette(labelPalette);
}

} // namespace quillorn
