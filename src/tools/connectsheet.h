#pragma once

#include <QString>
#include <QUrl>
#include <QWidget>
#include <functional>
#include <optional>

class QLabel;
class QLineEdit;

namespace quillorn {

// Takes the address of an SMB or AFP server and hands it to the desktop, which
// mounts the share and asks for credentials itself: the address may carry no
// user name or password, and Quillorn stores none. Stays open after either
// outcome; only Close or Escape closes it.
class ConnectSheet : public QWidget {
    Q_OBJECT
public:
    using HandOff = std::function<bool(const QUrl &)>;

    ConnectSheet(std::function<void()> dismiss, HandOff handOff, QWidget *parent = nullptr);

    QString address() const;
    void setAddress(const QString &address);
    const QString &status() const { return m_status; }
    void connectToServer();

    // The address as typed, not trimmed, when it is an smb or afp URL (any
    // letter case) with a host and without credentials.
    static std::optional<QUrl> serverAddress(const QString &text);

    static inline const QString initialStatus = QStringLiteral(
        "Connect using the desktop. After authentication, choose the mounted share from either "
        "pane\u2019s volume menu.");
    static inline const QString note = QStringLiteral(
        "SMB and AFP are handled by the desktop\u2019s file manager. Credentials stay with the "
        "desktop; Quillorn does not store passwords.");
    static inline const QString invalid =
        QStringLiteral("Enter an smb:// or afp:// server URL without embedded credentials.");
    static inline const QString handedOver = QStringLiteral(
        "Connection handed to the desktop. Once mounted, select the share in the volume menu.");
    static inline const QString refused = QStringLiteral("The desktop could not open this server address.");

private:
    void setStatus(const QString &status);

    std::function<void()> m_dismiss;
    HandOff m_handOff;
    QString m_status = initialStatus;
    QLineEdit *m_address = nullptr;
    QLabel *m_statusLabel = nullptr;
};

} // namespace quillorn
