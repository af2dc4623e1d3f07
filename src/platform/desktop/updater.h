#pragma once

#include <QObject>
#include <QString>

namespace quillorn {

class Preferences;

// Stands in for a software-update framework on a system where Quillorn comes
// from the package manager. It keeps the two automatic-update settings
// (persisted in the preferences store), says whether a check can start, and a
// check tells the user where updates come from instead of downloading anything.
// Created at start-up in every run; started only outside release previews.
class Updater : public QObject {
    Q_OBJECT
public:
    static constexpr const char *automaticallyChecksKey = "updates.automaticallyCheck";
    static constexpr const char *automaticallyDownloadsKey = "updates.automaticallyDownload";

    explicit Updater(Preferences &preferences, bool startingUpdater, QObject *parent = nullptr);

    void start();
    bool started() const { return m_started; }

    // True once started and while no check is being shown to the user.
    bool canCheckForUpdates() const;
    // Publishes the check's answer through checkFinished(); the one sentence
    // is shown by whoever presents it, who calls checkPresented() afterwards.
    void checkForUpdates();
    void checkPresented();

    bool automaticallyChecksForUpdates() const;
    void setAutomaticallyChecksForUpdates(bool on);
    bool automaticallyDownloadsUpdates() const;
    void setAutomaticallyDownloadsUpdates(bool on);

    static QString checkAnswer();

Q_SIGNALS:
    void canCheckForUpdatesChanged(bool canCheck);
    void checkFinished(const QString &message);

private:
    void setChecking(bool checking);

    Preferences &m_preferences;
    bool m_started = false;
    bool m_checking = false;
};

} // namespace quillorn
