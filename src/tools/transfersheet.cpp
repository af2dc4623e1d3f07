#include "tools/transfersheet.h"
#include "tools/detail/sheetlabels.h"

#include "operations/fileoperations.h"
#include "platform/core/displaytext.h"
#include "services/transferqueue.h"

#include <QComboBox>
#include <QFontDatabase>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>

namespace quillorn {

TransferSheet::TransferSheet(std::vector<Path> sources, Path destination, bool move, TransferQueue &queue,
                             std::function<void()> dismiss, QWidget *parent)
    : QWidget(parent), m_sources(std::move(sources)), m_destination(std::move(destination)), m_move(move),
      m_queue(queue), m_dismiss(std::move(dismiss))
{
    setObjectName(QStringLiteral("transferSheet"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);

    layout->addWidget(detail::sheetTitle(heading(m_sources.size(), m_move), this));

    auto *to = new QLabel(QStringLiteral("To: ") + displayText(m_destination), this);
    to->setObjectName(QStringLiteral("destinationLabel"));
    to->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(to);

    QStringList lines;
    for (const Path &source : m_sources)
        lines << displayText(source);
    auto *list = new QPlainTextEdit(lines.join(QLatin1Char('\n')), this);
    list->setObjectName(QStringLiteral("sourceList"));
    list->setReadOnly(true);
    list->setFocusPolicy(Qt::NoFocus);
    list->setLineWrapMode(QPlainTextEdit::NoWrap);
    QFont mono = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    mono.setPointSizeF(mono.pointSizeF() * 0.9);
    list->setFont(mono);
    layout->addWidget(list, 1);

    m_policy = new QComboBox(this);
    m_policy->setObjectName(QStringLiteral("policyPicker"));
    for (ConflictPolicy policy : allConflictPolicies)
        m_policy->addItem(QString::fromUtf8(rawValue(policy).data(), qsizetype(rawValue(policy).size())));
    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("If a name exists"), m_policy);
    layout->addLayout(form);

    layout->addWidget(detail::sheetNote(note, this));

    auto *buttons = new QHBoxLayout;
    auto *cancelButton = new QPushButton(QStringLiteral("Cancel"), this);
    cancelButton->setObjectName(QStringLiteral("cancelButton"));
    cancelButton->setAutoDefault(false);
    m_add = new QPushButton(QStringLiteral("Add to queue"), this);
    m_add->setObjectName(QStringLiteral("addButton"));
    // Not an auto-default: the focus moving to the picker must not take the
    // default away from it (see keyPressEvent).
    m_add->setAutoDefault(false);
    m_add->setDefault(true);
    buttons->addStretch(1);
    buttons->addWidget(cancelButton);
    buttons->addWidget(m_add);
    layout->addLayout(buttons);
    connect(cancelButton, &QPushButton::clicked, this, &TransferSheet::cancel);
    connect(m_add, &QPushButton::clicked, this, &TransferSheet::addToQueue);
    setFocusProxy(m_add);
}

ConflictPolicy TransferSheet::policy() const
{
    return allConflictPolicies[std::size_t(std::max(0, m_policy->currentIndex()))];
}

void TransferSheet::setPolicy(ConflictPolicy policy)
{
    m_policy->setCurrentIndex(int(std::find(allConflictPolicies.begin(), allConflictPolicies.end(), policy) -
                                  allConflictPolicies.begin()));
}

void TransferSheet::addToQueue()
{
    m_queue.enqueue(queueTitle(m_sources.size(), m_destination, m_move),
                    TransferJob{m_sources, m_destination, m_move, policy()});
    if (m_dismiss)
        m_dismiss();
}

void TransferSheet::keyPressEvent(QKeyEvent *event)
{
    // Return adds to the queue whatever has the focus: the picker and the Cancel
    // button pass the key on to here. An open drop-down list is a window of its
    // own and keeps its Return.
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        addToQueue();
        return;
    }
    QWidget::keyPressEvent(event);
}

void TransferSheet::cancel()
{
    if (m_dismiss)
        m_dismiss();
}

QString TransferSheet::heading(std::size_t count, bool move)
{
    return (move ? QStringLiteral("Move ") : QStringLiteral("Copy ")) + QString::number(count) +
           QStringLiteral(" item(s)");
}

QString TransferSheet::queueTitle(std::size_t count, const Path &destination, bool move)
{
    // A folder written with a trailing slash still ends in its own name; the root is "/".
    Path folder = destination;
    if (!folder.has_filename() && folder.has_relative_path())
        folder = folder.parent_path();
    const QString name = folder.has_filename() ? displayName(folder) : QStringLiteral("/");
    return (move ? QStringLiteral("Move ") : QStringLiteral("Copy ")) + QString::number(count) +
           QStringLiteral(" \u2192 ") + name;
}

} // namespace quillorn
