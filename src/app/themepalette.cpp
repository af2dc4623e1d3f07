#include "app/themepalette.h"

#include "app/detail/panelayout.h"
#include "model/commanderthemecolours.h"

namespace quillorn {

QPalette themePalette(CommanderTheme theme)
{
    const CommanderThemeColours c = colours(theme);
    const QColor text = detail::primaryTextColour();
    QPalette palette;
    for (QPalette::ColorGroup group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
        const bool disabled = group == QPalette::Disabled;
        const QColor groupText = disabled ? detail::secondaryTextColour() : text;
        palette.setColor(group, QPalette::Window, c.window);
        palette.setColor(group, QPalette::WindowText, groupText);
        palette.setColor(group, QPalette::Base, c.pane);
        palette.setColor(group, QPalette::AlternateBase, c.alternateRow);
        palette.setColor(group, QPalette::Text, groupText);
        palette.setColor(group, QPalette::PlaceholderText, detail::secondaryTextColour());
        palette.setColor(group, QPalette::Button, c.button);
        palette.setColor(group, QPalette::ButtonText, groupText);
        palette.setColor(group, QPalette::BrightText, Qt::white);
        palette.setColor(group, QPalette::Highlight, c.selection);
        palette.setColor(group, QPalette::HighlightedText, Qt::white);
        palette.setColor(group, QPalette::Link, c.accent);
        palette.setColor(group, QPalette::ToolTipBase, c.bar);
        palette.setColor(group, QPalette::ToolTipText, text);
        palette.setColor(group, QPalette::Light, QColor(c.button).lighter(130));
        palette.setColor(group, QPalette::Midlight, QColor(c.button).lighter(115));
        palette.setColor(group, QPalette::Mid, c.bar);
        palette.setColor(group, QPalette::Dark, QColor(c.window).darker(130));
        palette.setColor(group, QPalette::Shadow, Qt::black);
    }
    return palette;
}

} // namespace quillorn
