#include "tools/detail/editortext.h"

#include <QPlainTextEdit>
#include <QTextCursor>
#include <QTextDocument>

namespace quillorn::detail {

namespace {

constexpr QChar carriageReturnSymbol(0x240d);

// Besides the carriage return, the only characters a QTextDocument does not
// give back as they were put in: each ends a block and comes back as a line feed.
bool holdsBlockBreaks(const QString &text)
{
    return text.contains(QChar::ParagraphSeparator) || text.contains(QChar(0xfdd0)) ||
           text.contains(QChar(0xfdd1));
}

} // namespace

std::optional<EditorText> EditorText::forText(const QString &text)
{
    if (holdsBlockBreaks(text))
        return std::nullopt;
    const qsizetype returns = text.count(QLatin1Char('\r'));
    if (returns == 0)
        return EditorText(Lines::plain);
    const qsizetype pairs = text.count(QLatin1String("\r\n"));
    if (returns == pairs && text.count(QLatin1Char('\n')) == pairs)
        return EditorText(Lines::crlf);
    if (text.contains(carriageReturnSymbol))
        return std::nullopt;
    return EditorText(Lines::markedCr);
}

QString EditorText::shown(const QString &text) const
{
    switch (m_lines) {
    case Lines::plain:
        return text;
    case Lines::crlf:
        return QString(text).remove(QLatin1Char('\r'));
    case Lines::markedCr:
        return QString(text).replace(QLatin1Char('\r'), carriageReturnSymbol);
    }
    return text;
}

QString EditorText::taken(const QString &shown) const
{
    switch (m_lines) {
    case Lines::plain:
        return shown;
    case Lines::crlf:
        return QString(shown).replace(QLatin1Char('\n'), QLatin1String("\r\n"));
    case Lines::markedCr:
        return QString(shown).replace(carriageReturnSymbol, QLatin1Char('\r'));
    }
    return shown;
}

qsizetype EditorText::utf8Bytes(QStringView shown) const
{
    qsizetype bytes = 0;
    for (const QChar c : shown) {
        const char16_t unit = c.unicode();
        if (unit < 0x80)
            bytes += unit == u'\n' && m_lines == Lines::crlf ? 2 : 1;
        else if (unit < 0x800)
            bytes += 2;
        else if (QChar::isHighSurrogate(unit))
            bytes += 4; // with its low surrogate, which counts nothing
        else if (QChar::isLowSurrogate(unit))
            continue;
        else
            bytes += unit == carriageReturnSymbol && m_lines == Lines::markedCr ? 1 : 3;
    }
    return bytes;
}

void EditorText::fill(QPlainTextEdit *editor, const QString &shown)
{
    // Through the document, not QPlainTextEdit::setPlainText, which then sets
    // the same character format over the whole text once more: some 50 ms of
    // an 8 MiB file's opening. Undo stays off while it fills.
    QTextDocument *document = editor->document();
    document->setPlainText(shown);
    document->setModified(false);
    editor->setTextCursor(QTextCursor(document));
}

QString EditorText::contents(const QPlainTextEdit *editor)
{
    // toRawText, not toPlainText, which turns no-break spaces into spaces.
    return editor->document()->toRawText().replace(QChar::ParagraphSeparator, QLatin1Char('\n'));
}

} // namespace quillorn::detail
