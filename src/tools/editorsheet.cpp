#include "tools/editorsheet.h"

#include "model/commanderthemecolours.h"
#include "platform/core/displaytext.h"
#include "platform/desktop/modaldialogs.h"
#include "services/errortext.h"
#include "tools/backgroundwork.h"
#include "tools/detail/editorview.h"
#include "tools/detail/findbar.h"
#include "tools/detail/sheetbutton.h"
#include "tools/detail/sheetlabels.h"
#include "tools/detail/syntaxhighlighting.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QIntValidator>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QMimeDatabase>
#include <QPushButton>
#include <QVBoxLayout>

#include <utility>

namespace quillorn {

namespace {

// Why a save cannot replace the file whole, said once per document: later
// saves of it take the same route and just say "Saved".
QString inPlaceReason(TextDocument::SaveMethod method)
{
    switch (method) {
    case ContentsWrite::inPlaceLinked:
        return QStringLiteral("This file has other hard links, so it is saved in place with a backup.");
    case ContentsWrite::inPlaceFolderClosed:
        return QStringLiteral(
            "This file\u2019s folder does not allow new files, so it is saved in place with a "
            "backup.");
    case ContentsWrite::inPlaceMetadata:
        return QStringLiteral(
            "Its volume cannot give a new file this file\u2019s owner or mode, so it is saved "
            "in place with a backup.");
    default:
        return QString();
    }
}

// Two texts are the same when their lines are: lines an edit never touched
// still share their characters with the loaded ones and compare at once.
bool sameLines(const std::vector<QString> &now, const std::vector<QString> &loaded)
{
    if (now.size() != loaded.size())
        return false;
    for (std::size_t i = 0; i < now.size(); ++i)
        if (now[i].constData() != loaded[i].constData() && now[i] != loaded[i])
            return false;
    return true;
}

} // namespace

EditorSheet::EditorSheet(Path url, Actions actions, QWidget *parent)
    : QWidget(parent), m_url(std::move(url)), m_actions(std::move(actions))
{
    setObjectName(QStringLiteral("editorSheet"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);

    m_title = detail::sheetTitle(QString(), this);
    layout->addWidget(m_title);

    m_caption = new QLabel(this);
    m_caption->setObjectName(QStringLiteral("byteCount"));
    layout->addWidget(m_caption);

    m_editor = new detail::EditorView(this);
    m_editor->setObjectName(QStringLiteral("textEditor"));
    m_editor->setAccessibleName(QStringLiteral("Text"));
    m_editor->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_editor->setEnabled(false);
    layout->addWidget(m_editor, 1);

    m_findBar = new detail::FindBar(m_editor, this);
    layout->addWidget(m_findBar);

    m_goToBar = new QWidget(this);
    auto *goTo = new QHBoxLayout(m_goToBar);
    goTo->setContentsMargins(0, 0, 0, 0);
    goTo->addWidget(new QLabel(QStringLiteral("Go to line"), m_goToBar));
    m_goToField = new QLineEdit(m_goToBar);
    m_goToField->setObjectName(QStringLiteral("goToLineField"));
    m_goToField->setValidator(new QIntValidator(1, INT_MAX, m_goToField));
    goTo->addWidget(m_goToField, 1);
    m_goToBar->hide();
    m_goToField->installEventFilter(this);
    layout->addWidget(m_goToBar);

    m_statusLabel = new QLabel(m_status, this);
    m_statusLabel->setObjectName(QStringLiteral("statusLabel"));
    m_statusLabel->setWordWrap(true);
    m_statusLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    QFont small = m_statusLabel->font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    m_statusLabel->setFont(small);
    layout->addWidget(m_statusLabel);

    auto *buttons = new QHBoxLayout;
    auto *open =
        detail::sheetButton(QStringLiteral("Open in default app"), QStringLiteral("openButton"), this);
    auto *closeButton = detail::sheetButton(QStringLiteral("Close"), QStringLiteral("closeButton"), this);
    m_saveButton = detail::sheetButton(QStringLiteral("Save"), QStringLiteral("saveButton"), this);
    buttons->addWidget(open);
    buttons->addStretch(1);
    buttons->addWidget(closeButton);
    buttons->addWidget(m_saveButton);
    layout->addLayout(buttons);

    connect(open, &QPushButton::clicked, this, [this] {
        if (m_actions.openFile)
            m_actions.openFile(m_url);
    });
    connect(closeButton, &QPushButton::clicked, this, &EditorSheet::close);
    connect(m_saveButton, &QPushButton::clicked, this, &EditorSheet::save);
    connect(&m_editor->buffer(), &detail::TextBuffer::changed, this, &EditorSheet::textChanged);
    connect(&m_editor->buffer(), &detail::TextBuffer::edited, this, &EditorSheet::textEdited);
    connect(m_goToField, &QLineEdit::returnPressed, this, &EditorSheet::goToLine);
    m_editor->installEventFilter(this);
    setFocusProxy(m_editor);
    updateView();

    runInBackground(
        this, [url = m_url] { return load(url); }, [this](Loaded result) { loaded(std::move(result)); },
        [this](const std::exception_ptr &error) { failed(error); });
}

EditorSheet::~EditorSheet()
{
    if (m_published && m_actions.unsavedChanged)
        m_actions.unsavedChanged(false);
}

QString EditorSheet::title() const
{
    return displayName(m_url) + (dirty() ? QStringLiteral(" \u2022") : QString());
}

QString EditorSheet::byteCount() const
{
    return QStringLiteral("UTF-8 \u00b7 ") + QString::number(m_bytes) + QStringLiteral(" bytes");
}

QString EditorSheet::text() const
{
    return m_lines ? m_lines->taken(m_editor->buffer().text()) : QString();
}

EditorSheet::Loaded EditorSheet::load(const Path &url)
{
    TextDocument document = TextDocument::load(url);
    const detail::EditorText lines = detail::EditorText::forText(document.text);
    QString shown = lines.shown(document.text);
    std::vector<QString> shownLines = detail::TextBuffer::viewLines(shown);
    const QString name = displayName(url);
    const QMimeType type = QMimeDatabase().mimeTypeForFileNameAndData(name, document.original.left(4096));
    const detail::Syntax syntax = detail::syntaxFor(QStringList{type.name()} + type.allAncestors(), name);
    return {std::move(document),   lines,  std::move(shown),
            std::move(shownLines), syntax, TextDocument::expectedSave(url)};
}

void EditorSheet::loaded(Loaded result)
{
    m_lines = result.lines;
    m_editor->setPasteFilter([lines = result.lines](const QString &text) { return lines.pasted(text); });
    m_editor->buffer().setLines(std::move(result.shownLines), std::move(result.shown));
    m_loadedLines = m_editor->buffer().lines();
    m_bytes = result.document.original.size();
    m_document = std::move(result.document);
    m_dirty = false;
    m_syntax = result.syntax;
    if (m_syntax != detail::Syntax::none) {
        m_highlighting = new detail::SyntaxHighlighting(m_syntax, m_editor->buffer(), this);
        m_editor->setHighlighting(m_highlighting);
    }
    // Said before the first save where it is known already, so the user is not surprised by it afterwards.
    const QString reason = inPlaceReason(result.expected);
    m_toldInPlace = !reason.isEmpty();
    setStatus(m_toldInPlace ? displayText(m_url) + QLatin1Char('\n') + reason : displayText(m_url));
    updateView();
    m_editor->setFocus();
}

void EditorSheet::textChanged(const detail::TextChange &change)
{
    if (m_lines)
        m_bytes += m_lines->utf8Bytes(change.inserted) - m_lines->utf8Bytes(change.removed);
}

void EditorSheet::textEdited()
{
    m_dirty = !sameLines(m_editor->buffer().lines(), m_loadedLines);
    updateView();
}

void EditorSheet::openFindBar()
{
    if (!m_document)
        return;
    m_goToBar->hide();
    m_findBar->open();
}

void EditorSheet::openGoToLine()
{
    if (!m_document)
        return;
    m_findBar->hide();
    m_goToField->clear();
    m_goToField->setPlaceholderText(QStringLiteral("1\u2013%1").arg(m_editor->buffer().lineCount()));
    m_goToBar->show();
    m_goToField->setFocus(Qt::ShortcutFocusReason);
}

void EditorSheet::goToLine()
{
    const qsizetype line =
        std::clamp<qsizetype>(m_goToField->text().toLongLong(), 1, m_editor->buffer().lineCount());
    m_goToBar->hide();
    m_editor->setCursorPosition({line - 1, 0});
    m_editor->ensureCursorVisible(true);
    m_editor->setFocus(Qt::OtherFocusReason);
}

void EditorSheet::applyTheme()
{
    const CommanderThemeColours palette = colours(CommanderThemeKey::value(this));
    m_editor->setSyntaxColours(detail::syntaxColours(palette), QColor(textColours(palette).secondary));
}

void EditorSheet::save()
{
    if (!m_document || m_saving || !dirty())
        return;
    TextDocument copy = *m_document;
    copy.text = text();
    m_savingLines = m_editor->buffer().lines();
    setSaving(true);
    runInBackground(
        this,
        [copy]() mutable {
            const TextDocument::SaveMethod method = copy.save();
            return std::pair(std::move(copy), method);
        },
        [this](std::pair<TextDocument, TextDocument::SaveMethod> result) {
            saved(std::move(result.first), result.second);
        },
        [this](const std::exception_ptr &error) {
            setSaving(false);
            failed(error);
        });
}

void EditorSheet::saved(TextDocument document, TextDocument::SaveMethod method)
{
    m_document = std::move(document);
    m_loadedLines = std::exchange(m_savingLines, {});
    m_dirty = !sameLines(m_editor->buffer().lines(), m_loadedLines);
    const QString reason = inPlaceReason(method);
    const bool tell = !reason.isEmpty() && !m_toldInPlace;
    m_toldInPlace = m_toldInPlace || tell;
    setStatus(tell ? reason : QStringLiteral("Saved"));
    setSaving(false);
}

void EditorSheet::failed(const std::exception_ptr &error)
{
    setStatus(errorDescription(error));
    updateView();
}

void EditorSheet::close()
{
    if (!dirty() && !m_saving) {
        if (m_actions.dismiss)
            m_actions.dismiss();
        return;
    }
    if (m_confirmation)
        return;
    auto *box = new QMessageBox(QMessageBox::Warning, QStringLiteral("Discard unsaved changes?"),
                                QStringLiteral("Discard unsaved changes?"), QMessageBox::NoButton, this);
    box->setObjectName(QStringLiteral("discardConfirmation"));
    QPushButton *discard = box->addButton(QStringLiteral("Discard changes"), QMessageBox::DestructiveRole);
    box->addButton(QMessageBox::Cancel);
    box->setDefaultButton(QMessageBox::Cancel);
    box->setAttribute(Qt::WA_DeleteOnClose);
    connect(box, &QMessageBox::finished, this, [this, box, discard] {
        if (box->clickedButton() == discard && m_actions.dismiss) {
            // Gone as far as the quit guard is concerned, even while a save still runs.
            m_dirty = false;
            m_saving = false;
            m_heldKeys.clear();
            m_actions.dismiss();
            return;
        }
        // Backed out: typing goes on in the text, also where no window
        // manager would give the sheet the keyboard back.
        window()->activateWindow();
        m_editor->setFocus();
        if (!m_saving)
            replayHeldKeys();
    });
    fitButtons(*box);
    m_confirmation = box;
    box->open();
}

void EditorSheet::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape) {
        close();
        return;
    }
    // Ctrl+S, F and G reach here from the text and the bars, which leave them alone.
    if (event->modifiers() == Qt::ControlModifier) {
        switch (event->key()) {
        case Qt::Key_S:
            save();
            return;
        case Qt::Key_F:
            openFindBar();
            return;
        case Qt::Key_G:
            openGoToLine();
            return;
        default:
            break;
        }
    }
    if (event->key() == Qt::Key_F3 && !m_findBar->query().pattern.isEmpty()) {
        m_findBar->findNext(event->modifiers() & Qt::ShiftModifier);
        return;
    }
    // The sheet covers the window, so quitting from here goes to the quit guard too.
    if (event->key() == Qt::Key_F10 ||
        (event->key() == Qt::Key_Q && (event->modifiers() & Qt::ControlModifier))) {
        if (m_actions.quit)
            m_actions.quit();
        return;
    }
    QWidget::keyPressEvent(event);
}

void EditorSheet::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    applyTheme();
    // The frame's own close (its title bar, the window system) must not drop unsaved edits either.
    if (!m_frame && window() != this) {
        m_frame = window();
        m_frame->installEventFilter(this);
    }
}

void EditorSheet::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    if (!event->spontaneous() && m_published && m_actions.unsavedChanged) {
        m_published = false;
        m_actions.unsavedChanged(false);
    }
}

bool EditorSheet::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_goToField && event->type() == QEvent::KeyPress &&
        static_cast<QKeyEvent *>(event)->key() == Qt::Key_Escape) {
        m_goToBar->hide();
        m_editor->setFocus(Qt::OtherFocusReason);
        return true;
    }
    if (watched == m_frame && event->type() == QEvent::Close && (dirty() || m_saving)) {
        event->ignore();
        close();
        return true;
    }
    if (watched == m_editor && event->type() == QEvent::KeyPress && m_saving &&
        !actsAtOnce(*static_cast<QKeyEvent *>(event))) {
        // Typed on while a save runs: kept for the text, which takes it once
        // the save is over, instead of lost to a text that cannot change now.
        // A Ctrl+S among them saves again in its turn.
        m_heldKeys.emplace_back(static_cast<QKeyEvent *>(event->clone()));
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

bool EditorSheet::actsAtOnce(const QKeyEvent &event)
{
    return event.key() == Qt::Key_Escape || event.key() == Qt::Key_F10 ||
           (event.key() == Qt::Key_Q && (event.modifiers() & Qt::ControlModifier));
}

void EditorSheet::replayHeldKeys()
{
    // In the order typed, each after the text took the one before; a replayed
    // Ctrl+S starts a save, and the keys after it are held again for that one.
    for (const std::unique_ptr<QKeyEvent> &key : std::exchange(m_heldKeys, {}))
        QCoreApplication::sendEvent(m_editor, key.get());
}

void EditorSheet::setStatus(const QString &status)
{
    m_status = status;
    m_statusLabel->setText(status);
}

void EditorSheet::setSaving(bool saving)
{
    m_saving = saving;
    updateView();
    if (!saving && !(m_confirmation && m_confirmation->isVisible())) // else once the user backs out
        replayHeldKeys();
}

void EditorSheet::updateUnsaved()
{
    const bool unsaved = dirty() || m_saving;
    if (unsaved == m_published)
        return;
    m_published = unsaved;
    if (m_actions.unsavedChanged)
        m_actions.unsavedChanged(unsaved);
}

void EditorSheet::updateView()
{
    m_title->setText(title());
    m_caption->setText(byteCount());
    // Read-only rather than disabled while a save runs: a disabled editor
    // would hand the keyboard to the next button, where typing is lost.
    m_editor->setEnabled(m_document.has_value());
    m_editor->setReadOnly(m_saving);
    m_saveButton->setEnabled(dirty() && !m_saving);
    updateUnsaved();
}

} // namespace quillorn
