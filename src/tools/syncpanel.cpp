#include "tools/syncpanel.h"

#include "operations/commandererror.h"
#include "operations/operationcontrol.h"
#include "platform/core/displaytext.h"
#include "platform/desktop/bytecount.h"
#include "services/errortext.h"
#include "services/synctree.h"
#include "tools/backgroundwork.h"
#include "tools/detail/sheetbutton.h"
#include "tools/detail/sheetlabels.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace quillorn {

namespace {

enum Column { actionColumn, itemColumn, sizeColumn };

QString arrow(SyncSide from)
{
    return from == SyncSide::left ? QStringLiteral(" →") : QStringLiteral(" ←");
}

QString actionText(const SyncAction &action)
{
    const QString side = action.side == SyncSide::left ? QStringLiteral("left") : QStringLiteral("right");
    QString text;
    switch (action.kind) {
    case SyncAction::Kind::copyNew:
        text = QStringLiteral("Copy new") + arrow(action.side);
        break;
    case SyncAction::Kind::replaceOlder:
        text = QStringLiteral("Replace older") + arrow(action.side);
        break;
    case SyncAction::Kind::createFolder:
        text = QStringLiteral("Create folder") + arrow(action.side);
        break;
    case SyncAction::Kind::trashExtra:
        text = QStringLiteral("Trash extra on ") + side;
        break;
    case SyncAction::Kind::conflict:
        return QStringLiteral("Conflict: ") + QString::fromStdString(action.why);
    }
    if (action.resolved)
        return text + QStringLiteral(" (conflict settled)");
    if (!action.why.empty())
        return text + QStringLiteral(" (") + QString::fromStdString(action.why) + QStringLiteral(")");
    return text;
}

QRadioButton *choice(const QString &text, const char *name, QButtonGroup *group, int id, QWidget *parent)
{
    auto *button = new QRadioButton(text, parent);
    button->setObjectName(QString::fromLatin1(name));
    group->addButton(button, id);
    return button;
}

} // namespace

SyncPanel::SyncPanel(Path left, Path right, Enqueue enqueue, QWidget *parent)
    : QWidget(parent), m_left(std::move(left)), m_right(std::move(right)), m_enqueue(std::move(enqueue))
{
    setObjectName(QStringLiteral("syncPanel"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    layout->addWidget(detail::sheetTitle(QStringLiteral("Synchronize folders"), this));

    auto *options = new QGridLayout;
    options->addWidget(new QLabel(QStringLiteral("Direction:"), this), 0, 0);
    m_direction = new QButtonGroup(this);
    options->addWidget(choice(QStringLiteral("Left → right"), "leftToRight", m_direction,
                              int(SyncOptions::Direction::leftToRight), this),
                       0, 1);
    options->addWidget(choice(QStringLiteral("Right → left"), "rightToLeft", m_direction,
                              int(SyncOptions::Direction::rightToLeft), this),
                       0, 2);
    options->addWidget(choice(QStringLiteral("Both ways"), "bothWays", m_direction,
                              int(SyncOptions::Direction::bothWays), this),
                       0, 3);
    m_direction->button(int(SyncOptions::Direction::bothWays))->setChecked(true);

    options->addWidget(new QLabel(QStringLiteral("Compare by:"), this), 1, 0);
    m_comparison = new QButtonGroup(this);
    options->addWidget(choice(QStringLiteral("Size and modification time"), "bySizeAndTime", m_comparison,
                              int(SyncOptions::Comparison::sizeAndTime), this),
                       1, 1, 1, 2);
    options->addWidget(choice(QStringLiteral("Content (SHA-256)"), "byContent", m_comparison,
                              int(SyncOptions::Comparison::content), this),
                       1, 3);
    m_comparison->button(int(SyncOptions::Comparison::sizeAndTime))->setChecked(true);

    m_trashExtras =
        new QCheckBox(QStringLiteral("Move items found only on the target side to the Trash (mirror)"), this);
    m_trashExtras->setObjectName(QStringLiteral("trashExtrasToggle"));
    options->addWidget(m_trashExtras, 2, 1, 1, 3);
    layout->addLayout(options);
    layout->addWidget(detail::sheetNote(note, this));

    m_statusLabel = new QLabel(this);
    m_statusLabel->setObjectName(QStringLiteral("syncStatusLabel"));
    m_statusLabel->setWordWrap(true);
    layout->addWidget(m_statusLabel);

    m_list = new QTreeWidget(this);
    m_list->setObjectName(QStringLiteral("planList"));
    m_list->setRootIsDecorated(false);
    m_list->setUniformRowHeights(true);
    m_list->setHeaderLabels({QStringLiteral("Action"), QStringLiteral("Item"), QStringLiteral("Size")});
    m_list->header()->setSectionResizeMode(actionColumn, QHeaderView::ResizeToContents);
    m_list->header()->setSectionResizeMode(itemColumn, QHeaderView::Stretch);
    m_list->header()->setSectionResizeMode(sizeColumn, QHeaderView::ResizeToContents);
    m_list->header()->setStretchLastSection(false);
    layout->addWidget(m_list, 1);

    auto *bottom = new QHBoxLayout;
    auto *backButton = detail::sheetButton(QStringLiteral("Back"), QStringLiteral("backButton"), this);
    m_useLeft = detail::sheetButton(QStringLiteral("Use left"), QStringLiteral("useLeftButton"), this);
    m_useRight = detail::sheetButton(QStringLiteral("Use right"), QStringLiteral("useRightButton"), this);
    m_run = detail::sheetButton(QStringLiteral("Synchronize"), QStringLiteral("runSyncButton"), this);
    bottom->addWidget(backButton);
    bottom->addStretch(1);
    bottom->addWidget(m_useLeft);
    bottom->addWidget(m_useRight);
    bottom->addWidget(m_run);
    layout->addLayout(bottom);
    m_useLeft->setEnabled(false);
    m_useRight->setEnabled(false);
    m_run->setEnabled(false);

    connect(backButton, &QPushButton::clicked, this, &SyncPanel::back);
    connect(m_useLeft, &QPushButton::clicked, this, [this] { settle(SyncSide::left); });
    connect(m_useRight, &QPushButton::clicked, this, [this] { settle(SyncSide::right); });
    connect(m_run, &QPushButton::clicked, this, &SyncPanel::confirm);
    connect(m_direction, &QButtonGroup::idToggled, this, [this](int, bool on) {
        if (on)
            replan();
    });
    connect(m_comparison, &QButtonGroup::idToggled, this, [this](int, bool on) {
        if (on)
            replan();
    });
    connect(m_trashExtras, &QCheckBox::toggled, this, &SyncPanel::replan);
    connect(m_list, &QTreeWidget::itemChanged, this, [this](QTreeWidgetItem *item, int column) {
        if (m_filling || column != actionColumn || !m_plan)
            return;
        const auto index = std::size_t(m_list->indexOfTopLevelItem(item));
        m_plan->setChecked(index, item->checkState(actionColumn) == Qt::Checked);
        updateSummary();
    });
    connect(m_list, &QTreeWidget::currentItemChanged, this, [this](QTreeWidgetItem *current) {
        const bool conflict = current && m_plan &&
                              m_plan->actions()[std::size_t(m_list->indexOfTopLevelItem(current))].kind ==
                                  SyncAction::Kind::conflict;
        m_useLeft->setEnabled(conflict);
        m_useRight->setEnabled(conflict);
    });
    replan();
}

SyncPanel::~SyncPanel()
{
    if (m_control)
        m_control->cancel();
}

SyncOptions SyncPanel::options() const
{
    SyncOptions chosen;
    chosen.direction = SyncOptions::Direction(m_direction->checkedId());
    chosen.comparison = SyncOptions::Comparison(m_comparison->checkedId());
    chosen.oneSideOnly =
        m_trashExtras->isChecked() ? SyncOptions::OneSideOnly::trash : SyncOptions::OneSideOnly::copy;
    return chosen;
}

void SyncPanel::replan()
{
    if (m_control)
        m_control->cancel();
    m_control = std::make_shared<OperationControl>();
    const SyncOptions chosen = options();
    m_trashExtras->setEnabled(chosen.direction != SyncOptions::Direction::bothWays);
    m_plan.reset();
    m_planning = true;
    m_run->setEnabled(false);
    m_list->clear();
    setStatus(QStringLiteral("Making the plan…"));
    const int generation = ++m_generation;
    runInBackground(
        this,
        [left = m_left, right = m_right, chosen, control = m_control] {
            const std::optional<SyncMemory> memory =
                SyncMemory::load(SyncMemory::defaultFolder(), left, right);
            return SyncPlan::make(left, right, chosen, memory ? &*memory : nullptr, *control);
        },
        [this, generation](SyncPlan plan) {
            if (generation == m_generation)
                present(std::move(plan));
        },
        [this, generation](const std::exception_ptr &error) {
            if (generation != m_generation)
                return;
            m_planning = false;
            try {
                std::rethrow_exception(error);
            } catch (const CancellationError &) {
                setStatus(QStringLiteral("Cancelled"));
            } catch (...) {
                setStatus(userFacingDescription(error));
            }
        });
}

void SyncPanel::present(SyncPlan plan)
{
    m_planning = false;
    m_plan = std::move(plan);
    fill();
    updateSummary();
}

void SyncPanel::fill()
{
    m_filling = true;
    const int current = m_list->currentItem() ? m_list->indexOfTopLevelItem(m_list->currentItem()) : 0;
    m_list->clear();
    QList<QTreeWidgetItem *> rows;
    for (const SyncAction &action : m_plan->actions()) {
        auto *row = new QTreeWidgetItem;
        row->setText(actionColumn, actionText(action));
        row->setText(itemColumn, displayText(std::filesystem::path(action.path)));
        if (action.bytes() > 0 || action.kind == SyncAction::Kind::copyNew ||
            action.kind == SyncAction::Kind::replaceOlder)
            row->setText(sizeColumn, formattedByteCount(action.bytes()));
        row->setTextAlignment(sizeColumn, Qt::AlignRight | Qt::AlignVCenter);
        Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
        if (action.kind != SyncAction::Kind::conflict)
            flags |= Qt::ItemIsUserCheckable;
        row->setFlags(flags);
        row->setCheckState(actionColumn, action.checked ? Qt::Checked : Qt::Unchecked);
        rows << row;
    }
    m_list->addTopLevelItems(rows);
    if (!rows.isEmpty())
        m_list->setCurrentItem(rows[std::min(current, int(rows.size()) - 1)]);
    m_filling = false;
}

void SyncPanel::updateSummary()
{
    if (!m_plan)
        return;
    const std::size_t all = m_plan->actions().size();
    if (all == 0) {
        setStatus(QStringLiteral("Nothing to synchronize"));
        m_run->setEnabled(m_plan->options().direction == SyncOptions::Direction::bothWays);
        return;
    }
    const auto conflicts =
        std::count_if(m_plan->actions().begin(), m_plan->actions().end(),
                      [](const SyncAction &action) { return action.kind == SyncAction::Kind::conflict; });
    QString text = QString::number(m_plan->checkedCount()) + QStringLiteral(" of ") + QString::number(all) +
                   QStringLiteral(" actions checked, ") + formattedByteCount(m_plan->bytesToTransfer()) +
                   QStringLiteral(" to transfer");
    if (conflicts > 0)
        text += QStringLiteral(". ") + QString::number(conflicts) +
                QStringLiteral(" conflicts wait for a side: select one and choose Use left or Use right");
    setStatus(text);
    m_run->setEnabled(m_plan->checkedCount() > 0);
}

void SyncPanel::settle(SyncSide winner)
{
    QTreeWidgetItem *current = m_list->currentItem();
    if (!m_plan || !current)
        return;
    m_plan->resolve(std::size_t(m_list->indexOfTopLevelItem(current)), winner);
    fill();
    updateSummary();
    m_list->setFocus();
}

void SyncPanel::confirm()
{
    if (!m_plan || m_planning)
        return;
    if (m_enqueue)
        m_enqueue(QStringLiteral("Synchronize"), Job(m_plan->job()));
    Q_EMIT queued();
}

void SyncPanel::setStatus(const QString &status)
{
    m_status = status;
    m_statusLabel->setText(status);
}

} // namespace quillorn
