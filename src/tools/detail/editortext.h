#pragma once

#include <QString>
#include <QStringView>
#include <optional>

class QPlainTextEdit;

namespace quillorn::detail {

// How a document's text is shown in a QPlainTextEdit and taken back byte for
// byte. The editor keeps line feeds only (it reads CR and CR LF as line
// breaks), so a file of CR LF lines is shown with line feeds and gets its CRs
// back, and a file with other carriage returns shows each as ␍ (U+240D).
class EditorText {
public:
    // None when the text cannot be shown without loss: it holds ␍ itself next
    // to a carriage return that needs it, or a character the editor's document
    // takes as a paragraph or frame break (U+2029, U+FDD0, U+FDD1).
    static std::optional<EditorText> forText(const QString &text);

    QString shown(const QString &text) const;
    QString taken(const QString &shown) const;
    // The UTF-8 length of the text that `shown` stands for.
    qsizetype utf8Bytes(QStringView shown) const;

    // Puts `shown` into the editor as one step that cannot be undone, the
    // cursor at the start.
    static void fill(QPlainTextEdit *editor, const QString &shown);
    // What the editor holds, line breaks as line feeds.
    static QString contents(const QPlainTextEdit *editor);

private:
    enum class Lines { plain, crlf, markedCr };
    explicit EditorText(Lines lines) : m_lines(lines) {}
    Lines m_lines;
};

} // namespace quillorn::detail
