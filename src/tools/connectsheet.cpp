#include "tools/connectsheet.h"
#include "tools/detail/sheetlabels.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace quillorn {

ConnectSheet::ConnectSheet(std::function<void()> dismiss, HandOff handOff, QWidget *parent)
    : QWidget(parent), m_dismiss(std::move(dismiss)), m_handOff(std::move(handOff))
{
    setObjectName(QStringLiteral("connectSheet"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);

    layout->addWidget(detail::sheetTitle(QStringLiteral("Connect to server"), this));

    m_address = new QLineEdit(QStringLiteral("smb://"), this);
    m_address->setObjectName(QStringLiteral("addressField"));
    m_address->setPlaceholderText(QStringLiteral("smb://server/share"));
    layout->addWidget(m_address);

    m_statusLabel = new QLabel(m_status, this);
    m_statusLabel->setObjectName(QStringLiteral("statusLabel"));
    m_statusLabel->setWordWrap(true);
    layout->addWidget(m_statusLabel);

    layout->addWidget(detail::sheetNote(note, this));
    layout->addStretch(1);

    auto *row = new QHBoxLayout;
    row->addStretch(1);
    auto *closeButton = new QPushButton(QStringLiteral("Close"), this);
    closeButton->setObjectName(QStringLiteral("closeButton"));
    auto *connectButton = new QPushButton(QStringLiteral("Connect"), this);
    connectButton->setObjectName(QStringLiteral("connectButton"));
    // Return belongs to the address field, which runs the same action.
    for (QPushButton *button : {closeButton, connectButton})
        button->setAutoDefault(false);
    row->addWidget(closeButton);
    row->addWidget(connectButton);
    layout->addLayout(row);

    connect(m_address, &QLineEdit::returnPressed, this, &ConnectSheet::connectToServer);
    connect(connectButton, &QPushButton::clicked, this, &ConnectSheet::connectToServer);
    connect(closeButton, &QPushButton::clicked, this, [this] {
        if (m_dismiss)
            m_dismiss();
    });
    setFocusProxy(m_address);
}

QString ConnectSheet::address() const
{
    return m_address->text();
}

void ConnectSheet::setAddress(const QString &address)
{
    m_address->setText(address);
}

std::optional<QUrl> ConnectSheet::serverAddress(const QString &text)
{
    // Strict parsing of the text as typed: a leading space is no URL at all.
    const QUrl url(text, QUrl::StrictMode);
    if (!url.isValid())
        return std::nullopt;
    const QString scheme = url.scheme().toLower();
    if (scheme != QLatin1String("smb") && scheme != QLatin1String("afp"))
        return std::nullopt;
    if (url.host().isEmpty() || !url.userName().isEmpty() || !url.password().isEmpty())
        return std::nullopt;
    return url;
}

void ConnectSheet::connectToServer()
{
    const std::optional<QUrl> url = serverAddress(address());
    if (!url) {
        setStatus(invalid);
        return;
    }
    setStatus(m_handOff && m_handOff(*url) ? handedOver : refused);
}

void ConnectSheet::setStatus(const QString &status)
{
    m_status = status;
    m_statusLabel->setText(status);
}

} // namespace quillorn
