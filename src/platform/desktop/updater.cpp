#include "platform/desktop/updater.h"

#include "platform/core/preferences.h"

namespace quillorn {

Updater::Updater(Preferences &preferences, bool startingUpdater, QObject *parent)
    : QObject(parent), m_preferences(preferences)
{
    if (startingUpdater)
        start();
}

void Updater::start()
{
    if (m_started)
        return;
    m_started = true;
    Q_EMIT canCheckForUpdatesChanged(canCheckForUpdates());
}

bool Updater::canCheckForUpdates() const
{
    return m_started && !m_checking;
}

void Updater::checkForUpdates()
{
    if (!canCheckForUpdates())
        return;
    setChecking(true);
    Q_EMIT checkFinished(checkAnswer());
}

void Updater::checkPresented()
{
    setChecking(false);
}

void Updater::setChecking(bool checking)
{
    if (m_checking == checking)
        return;
    m_checking = checking;
    Q_EMIT canCheckForUpdatesChanged(canCheckForUpdates());
}

QString Updater::checkAnswer()
{
    return QStringLiteral("Quillorn is updated by your system’s package manager. "
                          "Use it to look for a newer version.");
}

bool Updater::automaticallyChecksForUpdates() const
{
    return m_preferences.boolean(QString::fromLatin1(automaticallyChecksKey), false);
}

void Updater::setAutomaticallyChecksForUpdates(bool on)
{
    m_preferences.setBoolean(QString::fromLatin1(automaticallyChecksKey), on);
}

bool Updater::automaticallyDownloadsUpdates() const
{
    return m_preferences.boolean(QString::fromLatin1(automaticallyDownloadsKey), false);
}

void Updater::setAutomaticallyDownloadsUpdates(bool on)
{
    m_preferences.setBoolean(QString::fromLatin1(automaticallyDownloadsKey), on);
}

} // namespace quillorn
