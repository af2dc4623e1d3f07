#include "app/applicationchooser.h"

#include <QCoreApplication>
#include <QDialogButtonBox>
#include <QDir>
#include <QIcon>
#include <QKeyEvent>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

namespace quillorn {

namespace {

QIcon iconOf(const DesktopApplication &application)
{
    if (application.icon.isEmpty())
        return {};
    return QDir::isAbsolutePath(application.icon) ? QIcon(application.icon)
                                                  : QIcon::fromTheme(application.icon);
}

} // namespace

ApplicationChooser::ApplicationChooser(std::vector<DesktopApplication> applications, Chosen chosen,
                                       QWidget *parent)
    : QDialog(parent), m_applications(std::move(applications)), m_chosen(std::move(chosen))
{
    setObjectName(QStringLiteral("applicationChooser"));
    setWindowTitle(QStringLiteral("Open with"));
    resize(420, 480);
    auto *column = new QVBoxLayout(this);
    m_filter = new QLineEdit(this);
    m_filter->setObjectName(QStringLiteral("applicationFilter"));
    m_filter->setPlaceholderText(QStringLiteral("Filter applications"));
    m_filter->installEventFilter(this);
    column->addWidget(m_filter);

    m_list = new QListWidget(this);
    m_list->setObjectName(QStringLiteral("applicationList"));
    m_list->setUniformItemSizes(true);
    for (std::size_t index = 0; index < m_applications.size(); ++index) {
        const DesktopApplication &application = m_applications[index];
        auto *item = new QListWidgetItem(iconOf(application), application.name, m_list);
        item->setToolTip(application.id);
        item->setData(Qt::UserRole, qulonglong(index));
    }
    column->addWidget(m_list, 1);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    m_open = buttons->addButton(QStringLiteral("Open"), QDialogButtonBox::AcceptRole);
    m_open->setDefault(true);
    column->addWidget(buttons);

    connect(m_filter, &QLineEdit::textChanged, this, &ApplicationChooser::applyFilter);
    connect(m_list, &QListWidget::currentRowChanged, this, &ApplicationChooser::updateButton);
    connect(m_list, &QListWidget::itemDoubleClicked, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(this, &QDialog::finished, this, [this](int result) {
        // The keyboard goes back to the window at once, also where no window
        // manager would hand it back.
        if (QWidget *window = parentWidget() ? parentWidget()->window() : nullptr)
            window->activateWindow();
        if (const std::optional<DesktopApplication> application = current();
            result == Accepted && application && m_chosen)
            m_chosen(*application);
    });
    applyFilter(QString());
    m_filter->setFocus();
}

ApplicationChooser *ApplicationChooser::offer(std::vector<DesktopApplication> applications, Chosen chosen,
                                              QWidget *parent)
{
    auto *chooser = new ApplicationChooser(std::move(applications), std::move(chosen), parent);
    chooser->setAttribute(Qt::WA_DeleteOnClose);
    chooser->open();
    return chooser;
}

std::optional<DesktopApplication> ApplicationChooser::current() const
{
    const QListWidgetItem *item = m_list->currentItem();
    if (!item || item->isHidden())
        return std::nullopt;
    return m_applications[item->data(Qt::UserRole).toULongLong()];
}

void ApplicationChooser::applyFilter(const QString &text)
{
    const QString wanted = text.trimmed();
    QListWidgetItem *first = nullptr;
    for (int row = 0; row < m_list->count(); ++row) {
        QListWidgetItem *item = m_list->item(row);
        const bool shown = item->text().contains(wanted, Qt::CaseInsensitive);
        item->setHidden(!shown);
        if (shown && !first)
            first = item;
    }
    // The current row stays while it is shown, else the first shown one.
    if (!m_list->currentItem() || m_list->currentItem()->isHidden())
        m_list->setCurrentItem(first);
    updateButton();
}

void ApplicationChooser::updateButton()
{
    m_open->setEnabled(current().has_value());
}

bool ApplicationChooser::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_filter && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (key == Qt::Key_Up || key == Qt::Key_Down || key == Qt::Key_PageUp || key == Qt::Key_PageDown) {
            QKeyEvent moved(QEvent::KeyPress, key, Qt::NoModifier);
            QCoreApplication::sendEvent(m_list, &moved);
            return true;
        }
    }
    return QDialog::eventFilter(watched, event);
}

} // namespace quillorn
