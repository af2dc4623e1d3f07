#include "tools/editorsheet.h"

#include "platform/core/displaytext.h"
#include "platform/desktop/modaldialogs.h"
#include "services/errortext.h"
#include "tools/backgroundwork.h"
#include "tools/detail/sheetbutton.h"
#include "tools/detail/sheetlabels.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
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

    m_editor = new QPlainTextEdit(this);
    m_editor->setObjectName(QStringLiteral("textEditor"));
    m_editor->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_editor->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_editor->setEnabled(false);
    layout->addWidget(m_editor, 1);

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
    connect(m_editor->document(), &QTextDocument::contentsChange, this, &EditorSheet::textEdited);
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
    return m_lines ? m_lines->taken(detail::EditorText::contents(m_editor)) : QString();
}

EditorSheet::Loaded EditorSheet::load(const Path &url)
{
    Loaded result{TextDocument::load(url), std::nullopt, QString(), TextDocument::expectedSave(url)};
    result.lines = detail::EditorText::forText(result.document.text);
    if (result.lines)
        result.shown = result.lines->shown(result.document.text);
    return result;
}

void EditorSheet::loaded(Loaded result)
{
    if (result.lines) {
        m_filling = true;
        detail::EditorText::fill(m_editor, result.shown);
        m_filling = false;
    }
    // forText refused every character the editor would not give back as it
    // was put in, so the editor holds the shown text. Reading 8 MiB back to
    // compare would add some 20 ms to the opening; the length is checked.
    if (!result.lines || m_editor->document()->characterCount() - 1 != result.shown.size()) {
        m_editor->clear();
        setStatus(
            QStringLiteral("This file holds line or paragraph separators the editor cannot keep. Open it "
                           "in its associated application."));
        updateView();
        return;
    }
    m_lines = result.lines;
    m_loadedShown = std::move(result.shown);
    m_shown = m_loadedShown;
    m_bytes = result.document.original.size();
    m_document = std::move(result.document);
    m_dirty = false;
    // Said before the first save where it is known already, so the user is not surprised by it afterwards.
    const QString reason = inPlaceReason(result.expected);
    m_toldInPlace = !reason.isEmpty();
    setStatus(m_toldInPlace ? displayText(m_url) + QLatin1Char('\n') + reason : displayText(m_url));
    updateView();
    m_editor->setFocus();
}

void EditorSheet::textEdited(int position, int removed, int added)
{
    if (m_filling || !m_lines)
        return;
    const qsizetype length = m_editor->document()->characterCount() - 1; // without the final block's end
    position = std::min<int>(position, int(m_shown.size()));
    removed = std::min<int>(removed, int(m_shown.size()) - position);
    added = std::min<int>(added, int(length) - position);
    QTextCursor cursor(m_editor->document());
    cursor.setPosition(position);
    cursor.setPosition(position + added, QTextCursor::KeepAnchor);
    const QString inserted = cursor.selectedText().replace(QChar::ParagraphSeparator, QLatin1Char('\n'));
    m_bytes += m_lines->utf8Bytes(inserted) - m_lines->utf8Bytes(QStringView(m_shown).mid(position, removed));
    m_shown.replace(position, removed, inserted);
    if (m_shown.size() != length)
        resynchronise(); // a change reported in a way not followed above: count it afresh
    // Equal lengths first: most keys change the length, and then no content is compared.
    m_dirty = m_shown.size() != m_loadedShown.size() || m_shown != m_loadedShown;
    updateView();
}

void EditorSheet::resynchronise()
{
    m_shown = detail::EditorText::contents(m_editor);
    m_bytes = m_lines->utf8Bytes(m_shown);
}

void EditorSheet::save()
{
    if (!m_document || m_saving || !dirty())
        return;
    TextDocument copy = *m_document;
    copy.text = text();
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
    m_loadedShown = m_lines->shown(m_document->text);
    m_dirty = m_shown != m_loadedShown;
    const QString reason = inPlaceReason(method);
    const bool tell = !reason.isEmpty() && !m_toldInPlace;
    m_toldInPlace = m_toldInPlace || tell;
    setStatus(tell ? reason : QStringLiteral("Saved"));
    setSaving(false);
}

void EditorSheet::failed(const std::exception_ptr &error)
{
    setStatus(userFacingDescription(error));
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
    // Ctrl+S reaches here from the text editor, which leaves it alone.
    if (event->key() == Qt::Key_S && event->modifiers() == Qt::ControlModifier) {
        save();
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
    if (m_editor->isReadOnly() != m_saving) {
        m_editor->setReadOnly(m_saving);
        if (m_saving) // keeps the text cursor drawn where typing goes on
            m_editor->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    }
    m_saveButton->setEnabled(dirty() && !m_saving);
    updateUnsaved();
}

} // namespace quillorn
