#include "app/themepalette.h"

#include "model/commanderthemecolours.h"

namespace quillorn {

QPalette themePalette(CommanderTheme theme)
{
    const CommanderThemeColours c = colours(theme);
    const ThemeTextColours text = textColours(c);
    QPalette palette;
    for (QPalette::ColorGroup group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
        const QColor groupText = group == QPalette::Disabled ? QColor(text.disabled) : QColor(text.primary);
        palette.setColor(group, QPalette::Window, c.window);
        palette.setColor(group, QPalette::WindowText, groupText);
        palette.setColor(group, QPalette::Base, c.pane);
        palette.setColor(group, QPalette::AlternateBase, c.alternateRow);
        palette.setColor(group, QPalette::Text, groupText);
        palette.setColor(group, QPalette::PlaceholderText, QColor(text.secondary));
        palette.setColor(group, QPalette::Button, c.button);
        palette.setColor(group, QPalette::ButtonText, groupText);
        palette.setColor(group, QPalette::BrightText, QColor(text.primary));
        palette.setColor(group, QPalette::Highlight, c.selection);
        palette.setColor(group, QPalette::HighlightedText, QColor(text.primary));
        palette.setColor(group, QPalette::Link, c.accent);
        palette.setColor(group, QPalette::ToolTipBase, c.bar);
        palette.setColor(group, QPalette::ToolTipText, QColor(text.primary));
        palette.setColor(group, QPalette::Light, QColor(c.button).lighter(130));
        palette.setColor(group, QPalette::Midlight, QColor(c.button).lighter(115));
        palette.setColor(group, QPalette::Mid, c.bar);
        palette.setColor(group, QPalette::Dark, QColor(c.window).darker(130));
        palette.setColor(group, QPalette::Shadow, Qt::black);
    }
    return palette;
}

QString themeStyleSheet(CommanderTheme theme)
{
    const CommanderThemeColours c = colours(theme);
    const ThemeTextColours text = textColours(c);
    return QStringLiteral(
               "QMessageBox, QDialog { background: %1; color: %2; }"
               "QMessageBox QLabel, QDialog QLabel { color: %2; }"
               "QLabel[secondaryText=\"true\"] { color: %10; }"
               "QMessageBox QPushButton, QDialog QPushButton { background: %3; color: %2; border: 1px solid "
               "%4;"
               " border-radius: 5px; padding: 4px 16px; min-width: 64px; }"
               "QMessageBox QPushButton:default, QDialog QPushButton:default { border-color: %5; }"
               "QMessageBox QPushButton:focus, QDialog QPushButton:focus { border-color: %5; }"
               "QMessageBox QPushButton:disabled, QDialog QPushButton:disabled { color: %7; }"
               "QDialog QLineEdit { background: %9; color: %2; border: 1px solid %4; border-radius: 4px;"
               " padding: 2px 6px; selection-background-color: %6; }"
               "QDialog QLineEdit:focus { border-color: %5; }"
               "QMenu { background: %8; color: %2; border: 1px solid %4; padding: 4px; }"
               "QMenu::item { padding: 4px 20px; border-radius: 3px; }"
               "QMenu::item:selected { background: %6; color: %2; }"
               "QMenu::item:disabled { color: %7; }"
               "QMenu::separator { height: 1px; background: %4; margin: 4px 8px; }"
               "QToolTip { background: %8; color: %2; border: 1px solid %4; padding: 3px; }"
               "QComboBox QAbstractItemView { background: %8; color: %2; selection-background-color: %6;"
               " border: 1px solid %4; }"
               "QScrollArea { background: transparent; border: none; }"
               "QScrollArea > QWidget > QWidget { background: transparent; }"
               "QScrollBar:vertical { background: transparent; width: 10px; margin: 0; }"
               "QScrollBar:horizontal { background: transparent; height: 10px; margin: 0; }"
               "QScrollBar::handle { background: %4; border-radius: 3px; margin: 2px; }"
               "QScrollBar::handle:vertical { min-height: 24px; }"
               "QScrollBar::handle:horizontal { min-width: 24px; }"
               "QScrollBar::handle:hover { background: %10; }"
               "QScrollBar::add-line, QScrollBar::sub-line { height: 0; width: 0; }"
               "QScrollBar::add-page, QScrollBar::sub-page { background: none; }")
        .arg(c.window.name(), QColor(text.primary).name(), c.button.name(), c.border.name(), c.accent.name(),
             c.selection.name(), QColor(text.disabled).name(), c.bar.name(), c.row.name(),
             QColor(text.secondary).name());
}

} // namespace quillorn
