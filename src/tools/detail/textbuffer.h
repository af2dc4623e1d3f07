#pragma once

#include <QObject>
#include <QString>
#include <QStringView>

#include <compare>
#include <optional>
#include <utility>
#include <vector>

namespace quillorn::detail {

// A place in the text: a line and a UTF-16 offset into it.
struct TextPosition {
    qsizetype line = 0;
    qsizetype column = 0;
    friend auto operator<=>(const TextPosition &, const TextPosition &) = default;
};

struct TextRange {
    TextPosition start;
    TextPosition end;
    bool isEmpty() const { return start == end; }
    friend bool operator==(const TextRange &, const TextRange &) = default;
};

// One change as observers hear of it: `removed` gave way to `inserted` at
// `start`, so lines start.line to start.line + removed's breaks became lines
// start.line to start.line + inserted's breaks.
struct TextChange {
    TextPosition start;
    QString removed;
    QString inserted;
    qsizetype removedBreaks() const { return removed.count(QLatin1Char('\n')); }
    qsizetype insertedBreaks() const { return inserted.count(QLatin1Char('\n')); }
};

// Which run of changes undo takes back at once: typed text, and characters
// deleted one after the other, undo together.
enum class EditKind { typing, deletingBackward, deletingForward, other };

// The text of the editor as lines without their breaks, with undo. Line breaks
// are line feeds only; every other character is kept as it came, so the text
// taken out is the text put in. Edits touch the lines they change and nothing
// else, which keeps a key in an 8 MiB text as cheap as in a small one.
class TextBuffer : public QObject {
    Q_OBJECT
public:
    explicit TextBuffer(QObject *parent = nullptr);

    static std::vector<QString> splitLines(QStringView text);
    // The lines of `text` without a copy of their characters: each views
    // `text`'s storage, which must outlive them (setLines keeps it), and
    // gets a copy of its own once edited.
    static std::vector<QString> viewLines(const QString &text);
    // The position after `text` put at `start`.
    static TextPosition endOf(TextPosition start, QStringView text);

    // Takes new contents and forgets undo; `storage` is the text the lines view, if any.
    void setLines(std::vector<QString> lines, QString storage = QString());
    const std::vector<QString> &lines() const { return m_lines; }
    qsizetype lineCount() const { return qsizetype(m_lines.size()); }
    const QString &line(qsizetype index) const { return m_lines[std::size_t(index)]; }
    TextPosition end() const;
    TextPosition clamp(TextPosition position) const;
    QString text() const;
    QString text(TextRange range) const;

    // UTF-16 units from the start, each line break counting one.
    qsizetype offset(TextPosition position) const;
    TextPosition position(qsizetype offset) const;
    qsizetype length() const;

    // Puts `text` in place of `range` and returns where it ends. A step of
    // undo, joined to the one before when both belong to one run of `kind`.
    TextPosition replace(TextRange range, QStringView text, EditKind kind = EditKind::other);
    // New contents for some lines, without breaks, as one step of undo.
    void replaceLines(const std::vector<std::pair<qsizetype, QString>> &lines);
    // The next change starts a step of its own (the cursor moved).
    void closeStep() { m_open = false; }

    bool canUndo() const { return !m_undo.empty(); }
    bool canRedo() const { return !m_redo.empty(); }
    // Where the cursor goes afterwards: the end of what came back.
    std::optional<TextPosition> undo();
    std::optional<TextPosition> redo();

Q_SIGNALS:
    void changed(const quillorn::detail::TextChange &change);
    // After each whole operation (a key, a replace-all, an undo): its changes were all told.
    void edited();
    void reset();

private:
    struct Edit {
        TextPosition start;
        QString removed;
        QString inserted;
    };
    struct Step {
        std::vector<Edit> edits;
        EditKind kind = EditKind::other;
    };

    QString apply(TextPosition start, TextPosition end, QStringView text);
    bool joins(const Edit &edit, EditKind kind);
    void invalidateStarts(qsizetype fromLine) const;
    void ensureStarts(qsizetype throughLine) const;

    QString m_storage;
    std::vector<QString> m_lines{QString()};
    std::vector<Step> m_undo;
    std::vector<Step> m_redo;
    bool m_open = false;
    // Offsets of line starts, valid for the first m_startsValid lines.
    mutable std::vector<qsizetype> m_starts;
    mutable qsizetype m_startsValid = 0;
};

} // namespace quillorn::detail

Q_DECLARE_METATYPE(quillorn::detail::TextChange)
