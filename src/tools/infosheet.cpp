#include "tools/infosheet.h"
#include "tools/detail/sheetlabels.h"

#include "operations/commandererror.h"
#include "platform/core/displaytext.h"
#include "platform/posix/accountnames.h"
#include "platform/posix/itemattributes.h"
#include "services/errortext.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace quillorn {

namespace {

QString text(const std::optional<std::string> &value)
{
    return value ? QString::fromStdString(*value) : QStringLiteral("Unknown");
}

QString octal(unsigned value, int digits)
{
    return QStringLiteral("%1").arg(value, digits, 8, QLatin1Char('0'));
}

QString describe(const std::filesystem::path &item, const ItemAttributes &attributes)
{
    return displayText(item) + QStringLiteral("\nType: ") +
           QString::fromStdString(ItemAttributes::typeName(attributes.type)) + QStringLiteral("\nSize: ") +
           QString::number(attributes.size) + QStringLiteral(" bytes") + QStringLiteral("\nOwner: ") +
           text(userName(attributes.owner)) + QStringLiteral("\nGroup: ") +
           text(groupName(attributes.group)) + QStringLiteral("\nModified: ") +
           QString::fromStdString(ItemAttributes::utcDateText(attributes.modifiedSeconds)) +
           QStringLiteral("\nMode: ") + octal(attributes.permissions, 4);
}

} // namespace

InfoSheet::InfoSheet(Path url, std::function<void()> dismiss, QWidget *parent)
    : QWidget(parent), m_url(std::move(url)), m_dismiss(std::move(dismiss))
{
    setObjectName(QStringLiteral("infoSheet"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(16);

    layout->addWidget(detail::sheetTitle(QStringLiteral("File information"), this));

    m_detailsLabel = new QLabel(this);
    m_detailsLabel->setObjectName(QStringLiteral("detailsLabel"));
    m_detailsLabel->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_detailsLabel->setTextFormat(Qt::PlainText);
    m_detailsLabel->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    layout->addWidget(m_detailsLabel);

    auto *row = new QHBoxLayout;
    m_permissions = new QLineEdit(this);
    m_permissions->setObjectName(QStringLiteral("permissionsField"));
    m_permissions->setPlaceholderText(QStringLiteral("POSIX mode (e.g. 644)"));
    m_permissions->setFixedWidth(220);
    m_apply = new QPushButton(QStringLiteral("Apply permissions"), this);
    m_apply->setObjectName(QStringLiteral("applyButton"));
    m_apply->setAutoDefault(false);
    row->addWidget(m_permissions);
    row->addWidget(m_apply);
    row->addStretch(1);
    layout->addLayout(row);

    m_statusLabel = new QLabel(this);
    m_statusLabel->setObjectName(QStringLiteral("statusLabel"));
    m_statusLabel->setWordWrap(true);
    QFont caption = m_statusLabel->font();
    caption.setPointSizeF(caption.pointSizeF() * 0.85);
    m_statusLabel->setFont(caption);
    layout->addWidget(m_statusLabel);
    layout->addStretch(1);

    auto *bottom = new QHBoxLayout;
    bottom->addStretch(1);
    auto *closeButton = new QPushButton(QStringLiteral("Close"), this);
    closeButton->setObjectName(QStringLiteral("closeButton"));
    closeButton->setAutoDefault(false);
    bottom->addWidget(closeButton);
    layout->addLayout(bottom);

    connect(m_apply, &QPushButton::clicked, this, &InfoSheet::applyPermissions);
    // Return in the field applies, as the button would; it never reaches the window.
    connect(m_permissions, &QLineEdit::returnPressed, this, [this] {
        if (m_editable)
            applyPermissions();
    });
    connect(closeButton, &QPushButton::clicked, this, [this] {
        if (m_dismiss)
            m_dismiss();
    });
    setEditable(false);
    setFocusProxy(m_permissions);
    load();
}

void InfoSheet::load()
{
    ItemAttributes attributes;
    try {
        attributes = ItemAttributes::read(m_url);
    } catch (const std::exception &error) {
        setStatus(errorDescription(error));
        return;
    }
    m_permissions->setText(octal(attributes.permissions & 0777, 3));
    setEditable(!attributes.isSymlink());
    m_details = describe(m_url, attributes);
    m_detailsLabel->setText(m_details);
}

void InfoSheet::applyPermissions()
{
    const std::optional<unsigned> value = parsePermissions(m_permissions->text());
    if (!value) {
        setStatus(badPermissions);
        return;
    }
    try {
        // Read again: the item may have changed kind since it was shown.
        if (ItemAttributes::read(m_url).isSymlink())
            throw CommanderError("Cannot change symbolic link permissions.");
        quillorn::setPermissions(m_url, *value);
    } catch (const std::exception &error) {
        setStatus(errorDescription(error));
        return;
    }
    setStatus(QStringLiteral("Permissions updated for this item only."));
    load();
}

QString InfoSheet::permissions() const
{
    return m_permissions->text();
}

void InfoSheet::setPermissions(const QString &text)
{
    m_permissions->setText(text);
}

std::optional<unsigned> InfoSheet::parsePermissions(const QString &text)
{
    if (text.size() != 3)
        return std::nullopt;
    unsigned value = 0;
    for (QChar digit : text) {
        if (digit < QLatin1Char('0') || digit > QLatin1Char('7'))
            return std::nullopt;
        value = value * 8 + unsigned(digit.unicode() - '0');
    }
    return value;
}

void InfoSheet::setStatus(const QString &status)
{
    m_status = status;
    m_statusLabel->setText(status);
}

void InfoSheet::setEditable(bool editable)
{
    m_editable = editable;
    m_apply->setEnabled(editable);
}

} // namespace quillorn
