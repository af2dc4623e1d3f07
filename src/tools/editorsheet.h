#pragma once

#include "services/textdocument.h"
#include "tools/detail/editortext.h"
#include "tools/detail/syntaxrules.h"
#include "tools/detail/textbuffer.h"

#include <QMessageBox>
#include <QPointer>
#include <QString>
#include <QWidget>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QKeyEvent;
class QLabel;
class QLineEdit;
class QPushButton;

namespace quillorn {

namespace detail {
class EditorView;
class FindBar;
class SyntaxHighlighting;
} // namespace detail

// The built-in editor for one UTF-8 text file: loads it in the background,
// saves with the document's change check, and never closes over unsaved edits
// without the user's word ("Discard unsaved changes?"). Ctrl+F finds and
// replaces, Ctrl+G goes to a line; the text is coloured by the syntax its MIME
// type names, in the theme's colours. Whether edits are
// unsaved, or a save runs, is published through `unsavedChanged` from one place
// (updateUnsaved), so the quit guard can refuse to quit meanwhile; when the
// sheet goes it publishes false. A load or save runs to its end even when the
// sheet closes; its result is then dropped.
class EditorSheet : public QWidget {
    Q_OBJECT
public:
    using Path = std::filesystem::path;

    struct Actions {
        std::function<void()> dismiss;
        // Opens the file in the desktop's default application.
        std::function<void(const Path &)> openFile;
        // Asks the application to quit (the quit guard decides).
        std::function<void()> quit;
        // Receives whether edits are unsaved or a save runs.
        std::function<void(bool)> unsavedChanged;
    };

    EditorSheet(Path url, Actions actions, QWidget *parent = nullptr);
    ~EditorSheet() override;

    bool dirty() const { return m_document && m_dirty; }
    bool saving() const { return m_saving; }
    const QString &status() const { return m_status; }
    QString title() const;
    QString byteCount() const;
    // The text as it would be saved.
    QString text() const;
    detail::Syntax syntax() const { return m_syntax; }

    void save();
    // Closes, or asks first when edits are unsaved.
    void close();
    QMessageBox *discardConfirmation() const { return m_confirmation; }

    static inline const QString loadingStatus = QStringLiteral("Loading\u2026");

    void openFindBar();
    void openGoToLine();

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    // A document as loaded in the background, with how the editor shows it:
    // none of the work on its 8 MiB of text is left for the interface thread
    // but handing the lines to the editor.
    struct Loaded {
        TextDocument document;
        detail::EditorText lines;
        QString shown;
        std::vector<QString> shownLines; // views of `shown`
        detail::Syntax syntax = detail::Syntax::none;
        TextDocument::SaveMethod expected = TextDocument::SaveMethod::replaced;
    };
    static Loaded load(const Path &url);

    void loaded(Loaded loaded);
    void saved(TextDocument document, TextDocument::SaveMethod method);
    void failed(const std::exception_ptr &error);
    void textChanged(const detail::TextChange &change);
    void textEdited();
    void goToLine();
    void applyTheme();
    void setStatus(const QString &status);
    void setSaving(bool saving);
    void updateUnsaved();
    void updateView();
    // Close and quit, which are not held back while a save runs.
    static bool actsAtOnce(const QKeyEvent &event);
    void replayHeldKeys();

    Path m_url;
    Actions m_actions;
    std::optional<TextDocument> m_document;
    std::optional<detail::EditorText> m_lines;
    // The document's text as the editor's lines: sharing their unchanged
    // lines, so telling whether the text differs looks at the changed ones only.
    std::vector<QString> m_loadedLines;
    std::vector<QString> m_savingLines; // the lines a running save writes
    detail::Syntax m_syntax = detail::Syntax::none;
    qsizetype m_bytes = 0;
    bool m_dirty = false;
    bool m_saving = false;
    bool m_published = false;
    bool m_toldInPlace = false; // why saves are not atomic was said
    // Typed into the text while a save runs, for the text to take afterwards.
    std::vector<std::unique_ptr<QKeyEvent>> m_heldKeys;
    QString m_status = loadingStatus;

    QLabel *m_title = nullptr;
    QLabel *m_caption = nullptr;
    detail::EditorView *m_editor = nullptr;
    detail::FindBar *m_findBar = nullptr;
    detail::SyntaxHighlighting *m_highlighting = nullptr;
    QWidget *m_goToBar = nullptr;
    QLineEdit *m_goToField = nullptr;
    QLabel *m_statusLabel = nullptr;
    QPushButton *m_saveButton = nullptr;
    QPointer<QMessageBox> m_confirmation;
    QPointer<QWidget> m_frame;
};

} // namespace quillorn
