#include "app/settingswindow.h"

#include "model/commanderthemecolours.h"
#include "model/themechoice.h"
#include "platform/core/preferences.h"
#include "platform/desktop/updater.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QPixmap>
#include <QVBoxLayout>

namespace quillorn {

namespace {

QIcon swatch(const QColor &colour)
{
    QPixmap pixmap(10, 10);
    pixmap.fill(colour);
    return QIcon(pixmap);
}

} // namespace

SettingsWindow::SettingsWindow(Preferences &preferences, Updater &updater, QWidget *parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("settingsWindow"));
    setWindowTitle(QStringLiteral("Settings"));
    setFixedWidth(460);
    auto *layout = new QVBoxLayout(this);

    auto *appearance = new QGroupBox(QStringLiteral("Appearance"), this);
    auto *appearanceForm = new QFormLayout(appearance);
    m_theme = new QComboBox(appearance);
    m_theme->setObjectName(QStringLiteral("themePicker"));
    m_theme->setIconSize(QSize(10, 10));
    for (CommanderTheme theme : allCommanderThemes)
        m_theme->addItem(swatch(colours(theme).accent), rawValue(theme));
    const QString stored = preferences.text(QString::fromLatin1(kThemePreferenceKey));
    const std::optional<CommanderTheme> current = commanderThemeFromRawValue(stored);
    m_theme->setCurrentIndex(current ? int(*current) : 0);
    appearanceForm->addRow(QStringLiteral("Theme"), m_theme);
    connect(m_theme, &QComboBox::currentIndexChanged, this, [this, &preferences](int index) {
        if (index < 0)
            return;
        const CommanderTheme theme = allCommanderThemes[std::size_t(index)];
        preferences.setText(QString::fromLatin1(kThemePreferenceKey), rawValue(theme));
        Q_EMIT themeChosen(theme);
    });
    layout->addWidget(appearance);

    auto *updates = new QGroupBox(QStringLiteral("Updates"), this);
    auto *updatesLayout = new QVBoxLayout(updates);
    m_checks = new QCheckBox(QStringLiteral("Automatically check for updates"), updates);
    m_downloads = new QCheckBox(QStringLiteral("Automatically download and install updates"), updates);
    m_checks->setChecked(updater.automaticallyChecksForUpdates());
    m_downloads->setChecked(updater.automaticallyDownloadsUpdates());
    connect(m_checks, &QCheckBox::toggled, &updater, &Updater::setAutomaticallyChecksForUpdates);
    connect(m_downloads, &QCheckBox::toggled, &updater, &Updater::setAutomaticallyDownloadsUpdates);
    updatesLayout->addWidget(m_checks);
    updatesLayout->addWidget(m_downloads);
    layout->addWidget(updates);
}

} // namespace quillorn
