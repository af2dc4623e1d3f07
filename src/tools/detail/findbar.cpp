#include "tools/detail/findbar.h"

#include "tools/detail/editorview.h"
#include "tools/detail/sheetbutton.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

namespace quillorn::detail {

FindBar::FindBar(EditorView *view, QWidget *parent) : QWidget(parent), m_view(view)
{
    setObjectName(QStringLiteral("findBar"));
    auto *grid = new QGridLayout(this);
    grid->setContentsMargins(0, 0, 0, 0);
    m_find = new QLineEdit(this);
    m_find->setObjectName(QStringLiteral("findField"));
    m_find->setPlaceholderText(QStringLiteral("Find"));
    m_find->setClearButtonEnabled(true);
    m_replace = new QLineEdit(this);
    m_replace->setObjectName(QStringLiteral("replaceField"));
    m_replace->setPlaceholderText(QStringLiteral("Replace with"));
    const auto box = [this](const QString &text, const char *name) {
        auto *check = new QCheckBox(text, this);
        check->setObjectName(QLatin1String(name));
        connect(check, &QCheckBox::toggled, this, &FindBar::searchAsTyped);
        return check;
    };
    m_matchCase = box(QStringLiteral("Match case"), "matchCaseBox");
    m_wholeWords = box(QStringLiteral("Whole words"), "wholeWordsBox");
    m_expression = box(QStringLiteral("Regular expression"), "expressionBox");
    auto *previous = sheetButton(QStringLiteral("Previous"), QStringLiteral("previousButton"), this);
    auto *next = sheetButton(QStringLiteral("Next"), QStringLiteral("nextButton"), this);
    auto *replaceOne = sheetButton(QStringLiteral("Replace"), QStringLiteral("replaceButton"), this);
    auto *replaceEvery = sheetButton(QStringLiteral("Replace all"), QStringLiteral("replaceAllButton"), this);
    m_state = new QLabel(this);
    m_state->setObjectName(QStringLiteral("findState"));

    grid->addWidget(m_find, 0, 0);
    grid->addWidget(previous, 0, 1);
    grid->addWidget(next, 0, 2);
    grid->addWidget(m_replace, 1, 0);
    grid->addWidget(replaceOne, 1, 1);
    grid->addWidget(replaceEvery, 1, 2);
    auto *options = new QHBoxLayout;
    options->addWidget(m_matchCase);
    options->addWidget(m_wholeWords);
    options->addWidget(m_expression);
    options->addStretch(1);
    options->addWidget(m_state);
    grid->addLayout(options, 2, 0, 1, 3);
    grid->setColumnStretch(0, 1);

    connect(m_find, &QLineEdit::textEdited, this, &FindBar::searchAsTyped);
    connect(previous, &QPushButton::clicked, this, [this] { findNext(true); });
    connect(next, &QPushButton::clicked, this, [this] { findNext(); });
    connect(replaceOne, &QPushButton::clicked, this, &FindBar::replace);
    connect(replaceEvery, &QPushButton::clicked, this, &FindBar::replaceAll);
    hide();
}

SearchQuery FindBar::query() const
{
    return {m_find->text(), m_matchCase->isChecked(), m_wholeWords->isChecked(), m_expression->isChecked()};
}

QString FindBar::state() const
{
    return m_state->text();
}

void FindBar::setState(const QString &text)
{
    m_state->setText(text);
}

void FindBar::open()
{
    const TextRange selected = m_view->selection();
    if (!selected.isEmpty() && selected.start.line == selected.end.line &&
        selected.end.column - selected.start.column <= 200)
        m_find->setText(m_view->selectedText());
    m_origin = selected.start;
    show();
    m_find->setFocus(Qt::ShortcutFocusReason);
    m_find->selectAll();
}

void FindBar::close()
{
    hide();
    setState(QString());
    m_view->setFocus(Qt::OtherFocusReason);
    m_view->ensureCursorVisible();
}

bool FindBar::findNext(bool backward)
{
    const TextSearch search(query());
    if (!search.isValid()) {
        setState(search.error());
        return false;
    }
    const TextRange selected = m_view->selection();
    const std::optional<TextRange> found =
        search.find(m_view->buffer(), backward ? selected.start : selected.end, backward);
    if (!found) {
        setState(QStringLiteral("Not found"));
        return false;
    }
    setState(QString());
    m_view->select(*found);
    m_origin = found->start;
    return true;
}

void FindBar::searchAsTyped()
{
    const TextSearch search(query());
    if (!search.isValid()) {
        setState(search.error());
        m_view->setCursorPosition(m_origin);
        return;
    }
    const std::optional<TextRange> found = search.find(m_view->buffer(), m_origin, false);
    setState(found ? QString() : QStringLiteral("Not found"));
    if (found)
        m_view->select(*found);
}

void FindBar::replace()
{
    const TextSearch search(query());
    if (const std::optional<QString> with =
            search.replacement(m_view->buffer(), m_view->selection(), m_replace->text()))
        m_view->insert(*with);
    findNext();
}

void FindBar::replaceAll()
{
    if (m_view->isReadOnly()) // a save runs: the text stays as it is being written
        return;
    const TextSearch search(query());
    if (!search.isValid()) {
        setState(search.error());
        return;
    }
    qsizetype count = 0;
    const std::vector<std::pair<qsizetype, QString>> lines =
        search.replaceAll(m_view->buffer(), m_replace->text(), &count);
    m_view->buffer().replaceLines(lines);
    setState(count == 1 ? QStringLiteral("Replaced 1 match")
                        : QStringLiteral("Replaced %1 matches").arg(count));
}

void FindBar::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape) {
        close();
    } else if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        if (m_replace->hasFocus())
            replace();
        else
            findNext(event->modifiers() & Qt::ShiftModifier);
    } else {
        QWidget::keyPressEvent(event);
        return;
    }
    event->accept();
}

} // namespace quillorn::detail
