#include "app/detail/panetabstrip.h"

#include "app/detail/glyphs.h"
#include "app/detail/panelayout.h"
#include "model/panemodel.h"
#include "platform/core/displaytext.h"

#include <QHBoxLayout>
#include <QScrollArea>
#include <QScrollBar>
#include <QToolButton>

#include <algorithm>

namespace quillorn::detail {

QString folderLabel(const std::filesystem::path &folder)
{
    std::filesystem::path trimmed = folder;
    while (!trimmed.has_filename() && trimmed.has_relative_path())
        trimmed = trimmed.parent_path();
    const QString name = displayName(trimmed);
    return name.isEmpty() ? QStringLiteral("/") : name;
}

PaneTabStrip::PaneTabStrip(PaneModel &pane, QWidget *parent)
    : QWidget(parent), m_pane(pane), m_colours(colours(CommanderThemeKey::defaultValue))
{
    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(4);

    m_scroll = new QScrollArea(this);
    m_scroll->setObjectName(QStringLiteral("tabStrip"));
    m_scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_scroll->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_scroll->setFrameShape(QFrame::NoFrame);
    m_scroll->setWidgetResizable(true);
    m_tabs = new QWidget(m_scroll);
    m_tabLayout = new QHBoxLayout(m_tabs);
    m_tabLayout->setContentsMargins(0, 0, 0, 0);
    m_tabLayout->setSpacing(2);
    m_scroll->setWidget(m_tabs);
    row->addWidget(m_scroll, 1);

    m_newTab = new QToolButton(this);
    m_newTab->setObjectName(QStringLiteral("newTabButton"));
    m_newTab->setToolTip(tr("New tab"));
    m_newTab->setAccessibleName(m_newTab->toolTip());
    m_newTab->setAutoRaise(true);
    connect(m_newTab, &QToolButton::clicked, &m_pane, &PaneModel::newTab);
    row->addWidget(m_newTab);

    m_closeTab = new QToolButton(this);
    m_closeTab->setObjectName(QStringLiteral("closeTabButton"));
    m_closeTab->setToolTip(tr("Close tab"));
    m_closeTab->setAccessibleName(m_closeTab->toolTip());
    m_closeTab->setAutoRaise(true);
    connect(m_closeTab, &QToolButton::clicked, &m_pane, &PaneModel::closeTab);
    row->addWidget(m_closeTab);

    connect(&m_pane, &PaneModel::tabsChanged, this, &PaneTabStrip::rebuild);
    connect(&m_pane, &PaneModel::tabIndexChanged, this, &PaneTabStrip::restyle);
    rebuild();
}

void PaneTabStrip::setColours(const CommanderThemeColours &colours)
{
    m_colours = colours;
    const QColor text = primaryTextColour(colours);
    m_newTab->setIcon(glyphIcon(Glyph::plus, text));
    // With one tab, Close cannot act and must look so.
    m_closeTab->setIcon(glyphIcon(Glyph::xmark, text, 16, disabledTextColour(colours)));
    restyle();
}

QList<QToolButton *> PaneTabStrip::tabButtons() const
{
    return m_buttons;
}

void PaneTabStrip::rebuild()
{
    // A tab button may be the sender of the click that led here: let it finish
    // its event before it goes.
    while (QLayoutItem *item = m_tabLayout->takeAt(0)) {
        if (QWidget *widget = item->widget()) {
            widget->hide();
            widget->deleteLater();
        }
        delete item;
    }
    m_buttons.clear();
    const auto &tabs = m_pane.tabs();
    for (std::size_t i = 0; i < tabs.size(); ++i) {
        auto *button = new QToolButton(m_tabs);
        button->setText(folderLabel(tabs[i]));
        button->setToolTip(displayText(tabs[i]));
        const int index = static_cast<int>(i);
        connect(button, &QToolButton::clicked, &m_pane, [this, index] { m_pane.selectTab(index); });
        m_tabLayout->addWidget(button);
        // A button added to a shown strip would appear only once the layout gets
        // round to it, and the strip's height is measured from the shown ones.
        button->show();
        m_buttons.append(button);
    }
    m_tabLayout->addStretch(1);
    restyle();
}

void PaneTabStrip::restyle()
{
    m_closeTab->setEnabled(m_pane.tabs().size() != 1);
    const QList<QToolButton *> buttons = tabButtons();
    const QString base = QStringLiteral("QToolButton { padding: 6px; border: none; border-radius: 4px; "
                                        "color: %1; background: %2; }")
                             .arg(primaryTextColour(m_colours).name());
    for (int i = 0; i < buttons.size(); ++i) {
        const bool current = i == m_pane.tabIndex();
        buttons[i]->setStyleSheet(
            base.arg(current ? m_colours.selection.name() : QStringLiteral("transparent")));
        buttons[i]->setProperty("currentTab", current);
        if (current)
            m_scroll->ensureWidgetVisible(buttons[i], 0, 0);
    }
    // Measured from the buttons themselves: the strip never shrinks below one tab.
    int height = 0;
    for (const QToolButton *button : buttons)
        height = std::max(height, button->sizeHint().height());
    m_scroll->setFixedHeight(height);
}

} // namespace quillorn::detail
