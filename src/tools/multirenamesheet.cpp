#include "tools/multirenamesheet.h"

#include "platform/core/displaytext.h"
#include "services/errortext.h"
#include "services/transferqueue.h"
#include "tools/backgroundwork.h"
#include "tools/detail/renamepreviewmodel.h"
#include "tools/detail/sheetbutton.h"
#include "tools/detail/sheetlabels.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTableView>
#include <QVBoxLayout>

namespace quillorn {

namespace {

QSpinBox *spinBox(const QString &objectName, int minimum, int maximum, int value, QWidget *parent)
{
    auto *box = new QSpinBox(parent);
    box->setObjectName(objectName);
    box->setRange(minimum, maximum);
    box->setValue(value);
    return box;
}

QLineEdit *field(const QString &objectName, const QString &placeholder, QWidget *parent)
{
    auto *edit = new QLineEdit(parent);
    edit->setObjectName(objectName);
    edit->setPlaceholderText(placeholder);
    return edit;
}

} // namespace

MultiRenameSheet::MultiRenameSheet(Path folder, std::vector<Path> items, TransferQueue &queue,
                                   std::function<void()> dismiss, QWidget *parent)
    : QWidget(parent), m_folder(std::move(folder)), m_queue(queue), m_dismiss(std::move(dismiss))
{
    setObjectName(QStringLiteral("multiRenameSheet"));
    for (const Path &item : items)
        m_names.push_back(item.filename().native());

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);
    layout->addWidget(
        detail::sheetTitle(QStringLiteral("Multi-rename %1 item(s)").arg(qsizetype(m_names.size())), this));
    auto *in = new QLabel(QStringLiteral("In: ") + displayText(m_folder), this);
    in->setObjectName(QStringLiteral("folderLabel"));
    in->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(in);

    auto *form = new QFormLayout;
    m_pattern = field(QStringLiteral("patternField"), QStringLiteral("[N].[E]"), this);
    m_pattern->setText(RenamePattern::Rules().pattern);
    m_pattern->selectAll();
    // The hint sits right under its field, closer than the rows are to each other.
    auto *patternColumn = new QVBoxLayout;
    patternColumn->setSpacing(2);
    patternColumn->addWidget(m_pattern);
    patternColumn->addWidget(detail::sheetNote(RenamePattern::hint, this));
    form->addRow(QStringLiteral("Name pattern"), patternColumn);

    auto *counter = new QHBoxLayout;
    m_start = spinBox(QStringLiteral("counterStart"), 0, 999'999'999, 1, this);
    m_step = spinBox(QStringLiteral("counterStep"), 1, 1000, 1, this);
    m_digits = spinBox(QStringLiteral("counterDigits"), 1, 10, 1, this);
    for (const auto &[text, box] :
         {std::pair(QStringLiteral("Start"), m_start), std::pair(QStringLiteral("Step"), m_step),
          std::pair(QStringLiteral("Digits"), m_digits)}) {
        auto *label = new QLabel(text, this);
        label->setBuddy(box);
        counter->addWidget(label);
        counter->addWidget(box);
    }
    counter->addStretch(1);
    form->addRow(QStringLiteral("Counter [C]"), counter);

    auto *replace = new QHBoxLayout;
    m_search = field(QStringLiteral("searchField"), QStringLiteral("Search for"), this);
    m_replacement = field(QStringLiteral("replaceField"), QStringLiteral("Replace with"), this);
    m_regularExpression = new QCheckBox(QStringLiteral("Regular expression"), this);
    m_regularExpression->setObjectName(QStringLiteral("regularExpressionToggle"));
    m_caseSensitive = new QCheckBox(QStringLiteral("Case-sensitive"), this);
    m_caseSensitive->setObjectName(QStringLiteral("caseSensitiveToggle"));
    replace->addWidget(m_search, 1);
    replace->addWidget(m_replacement, 1);
    replace->addWidget(m_regularExpression);
    replace->addWidget(m_caseSensitive);
    form->addRow(QStringLiteral("Search and replace"), replace);

    m_letterCase = new QComboBox(this);
    m_letterCase->setObjectName(QStringLiteral("letterCasePicker"));
    m_letterCase->addItems({QStringLiteral("Unchanged"), QStringLiteral("lower case"),
                            QStringLiteral("UPPER CASE"), QStringLiteral("Title Case")});
    form->addRow(QStringLiteral("Letter case"), m_letterCase);
    layout->addLayout(form);

    m_rows = new detail::RenamePreviewModel(this);
    m_rows->setDimColour(palette().color(QPalette::PlaceholderText));
    m_preview = new QTableView(this);
    m_preview->setObjectName(QStringLiteral("previewList"));
    m_preview->setModel(m_rows);
    m_preview->setTextElideMode(Qt::ElideMiddle);
    m_preview->setWordWrap(false);
    m_preview->setShowGrid(false);
    m_preview->setAlternatingRowColors(true);
    m_preview->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_preview->setSelectionMode(QAbstractItemView::SingleSelection);
    m_preview->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_preview->verticalHeader()->hide();
    // Fixed and stretched sections: measuring 10,000 rows on each key would lag.
    QHeaderView *header = m_preview->horizontalHeader();
    header->setSectionResizeMode(detail::RenamePreviewModel::oldColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(detail::RenamePreviewModel::newColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(detail::RenamePreviewModel::problemColumn, QHeaderView::Fixed);
    header->resizeSection(
        detail::RenamePreviewModel::problemColumn,
        fontMetrics().horizontalAdvance(QStringLiteral("\u26a0 ") +
                                        detail::RenamePreviewModel::label(NameConflict::duplicate)) +
            24);
    layout->addWidget(m_preview, 1);

    m_statusLabel = new QLabel(this);
    m_statusLabel->setObjectName(QStringLiteral("statusLabel"));
    m_statusLabel->setWordWrap(true);
    m_statusLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(m_statusLabel);

    auto *buttons = new QHBoxLayout;
    auto *cancelButton = detail::sheetButton(QStringLiteral("Cancel"), QStringLiteral("cancelButton"), this);
    m_rename = detail::sheetButton(QStringLiteral("Rename"), QStringLiteral("renameButton"), this);
    m_rename->setDefault(true);
    buttons->addStretch(1);
    buttons->addWidget(cancelButton);
    buttons->addWidget(m_rename);
    layout->addLayout(buttons);

    connect(cancelButton, &QPushButton::clicked, this, &MultiRenameSheet::cancel);
    connect(m_rename, &QPushButton::clicked, this, &MultiRenameSheet::rename);
    for (QLineEdit *edit : {m_pattern, m_search, m_replacement})
        connect(edit, &QLineEdit::textChanged, this, &MultiRenameSheet::update);
    for (QSpinBox *box : {m_start, m_step, m_digits})
        connect(box, &QSpinBox::valueChanged, this, &MultiRenameSheet::update);
    for (QCheckBox *box : {m_regularExpression, m_caseSensitive})
        connect(box, &QCheckBox::toggled, this, &MultiRenameSheet::update);
    connect(m_letterCase, &QComboBox::currentIndexChanged, this, &MultiRenameSheet::update);
    setFocusProxy(m_pattern);

    // Until the folder is read, the items are shown under the names they have.
    std::vector<detail::RenamePreviewModel::Row> rows;
    for (const std::string &name : m_names)
        rows.push_back({{name, name}, NameConflict::none});
    m_rows->setRows(std::move(rows));
    setStatus(QStringLiteral("Reading the folder…"));
    m_rename->setEnabled(false);
    runInBackground(
        this, [folder = m_folder, names = m_names] { return readRenameFolder(folder, names); },
        [this](RenameFolder read) { this->read(std::move(read)); },
        [this](const std::exception_ptr &error) { setStatus(userFacingDescription(error)); });
}

RenamePattern::Rules MultiRenameSheet::rules() const
{
    RenamePattern::Rules rules;
    rules.pattern = m_pattern->text();
    rules.counterStart = m_start->value();
    rules.counterStep = m_step->value();
    rules.counterDigits = m_digits->value();
    rules.search = m_search->text();
    rules.replacement = m_replacement->text();
    rules.regularExpression = m_regularExpression->isChecked();
    rules.caseSensitive = m_caseSensitive->isChecked();
    rules.letterCase = RenamePattern::LetterCase(std::max(0, m_letterCase->currentIndex()));
    return rules;
}

bool MultiRenameSheet::canRename() const
{
    return m_read && !m_ruleProblem && m_conflicts == 0 && m_changes > 0;
}

void MultiRenameSheet::read(RenameFolder folder)
{
    m_read = std::move(folder);
    update();
}

void MultiRenameSheet::update()
{
    if (!m_read)
        return;
    const RenamePattern pattern(rules());
    m_ruleProblem = !pattern.problem().isEmpty();
    m_plan.clear();
    m_plan.reserve(m_names.size());
    for (std::size_t i = 0; i < m_names.size(); ++i)
        m_plan.emplace_back(m_names[i],
                            m_ruleProblem ? m_names[i] : pattern.newName(m_names[i], i, m_read->modified[i]));
    const std::vector<NameConflict> conflicts = nameConflicts(m_plan, *m_read);
    std::vector<detail::RenamePreviewModel::Row> rows;
    rows.reserve(m_plan.size());
    m_changes = m_conflicts = 0;
    const NameChange *first = nullptr;
    NameConflict firstConflict = NameConflict::none;
    for (std::size_t i = 0; i < m_plan.size(); ++i) {
        rows.push_back({m_plan[i], conflicts[i]});
        m_changes += m_plan[i].first != m_plan[i].second;
        if (conflicts[i] != NameConflict::none && m_conflicts++ == 0) {
            first = &m_plan[i];
            firstConflict = conflicts[i];
        }
    }
    m_rows->setRows(std::move(rows));

    if (m_ruleProblem)
        setStatus(pattern.problem());
    else if (first)
        setStatus(QStringLiteral("%1 %2: ")
                      .arg(m_conflicts)
                      .arg(m_conflicts == 1 ? QStringLiteral("conflict") : QStringLiteral("conflicts")) +
                  QString::fromStdString(conflictMessage(firstConflict, *first)));
    else if (m_changes == 0)
        setStatus(QStringLiteral("No name changes."));
    else
        setStatus(QStringLiteral("%1 of %2 names change.").arg(m_changes).arg(m_plan.size()));
    m_rename->setEnabled(canRename());
}

void MultiRenameSheet::rename()
{
    if (!canRename())
        return;
    MultiRenameJob job{m_folder, {}};
    for (const NameChange &change : m_plan)
        if (change.first != change.second)
            job.names.push_back(change);
    const QString title = queueTitle(job.names.size());
    m_queue.enqueue(title, std::move(job));
    if (m_dismiss)
        m_dismiss();
}

void MultiRenameSheet::cancel()
{
    if (m_dismiss)
        m_dismiss();
}

QString MultiRenameSheet::queueTitle(std::size_t count)
{
    return QStringLiteral("Multi-rename %1 item(s)").arg(qsizetype(count));
}

void MultiRenameSheet::keyPressEvent(QKeyEvent *event)
{
    // Return renames whatever has the focus: the fields, boxes and the list pass
    // the key on to here. An open drop-down list keeps its own.
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        rename();
        return;
    }
    QWidget::keyPressEvent(event);
}

void MultiRenameSheet::setStatus(const QString &status)
{
    m_status = status;
    m_statusLabel->setText(status);
}

} // namespace quillorn
