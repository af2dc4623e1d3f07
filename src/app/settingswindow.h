#pragma once

#include "model/commandertheme.h"

#include <QDialog>

class QCheckBox;
class QComboBox;

namespace quillorn {

class Preferences;
class Updater;

// The application's settings: the theme ("Appearance") and the two automatic
// update settings ("Updates"). Every change is stored at once: the theme in
// "appearance.theme", which the main window follows through themeChosen, the
// update settings in the updater.
class SettingsWindow : public QDialog {
    Q_OBJECT
public:
    SettingsWindow(Preferences &preferences, Updater &updater, QWidget *parent = nullptr);

    QComboBox *themePicker() const { return m_theme; }
    QCheckBox *automaticChecks() const { return m_checks; }
    QCheckBox *automaticDownloads() const { return m_downloads; }

Q_SIGNALS:
    void themeChosen(CommanderTheme theme);

private:
    QComboBox *m_theme = nullptr;
    QCheckBox *m_checks = nullptr;
    QCheckBox *m_downloads = nullptr;
};

} // namespace quillorn
