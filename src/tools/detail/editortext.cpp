#include "tools/detail/editortext.h"

namespace quillorn::detail {

EditorText EditorText::forText(QStringView text)
{
    const qsizetype returns = text.count(QLatin1Char('\r'));
    if (returns == 0)
        return EditorText(Lines::plain);
    const qsizetype feeds = text.count(QLatin1Char('\n'));
    if (feeds == 0)
        return EditorText(Lines::cr);
    if (returns == feeds && text.count(QLatin1String("\r\n")) == feeds)
        return EditorText(Lines::crlf);
    return EditorText(Lines::plain);
}

QString EditorText::shown(const QString &text) const
{
    switch (m_lines) {
    case Lines::plain:
        return text;
    case Lines::crlf:
        return QString(text).remove(QLatin1Char('\r'));
    case Lines::cr:
        return QString(text).replace(QLatin1Char('\r'), QLatin1Char('\n'));
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
    case Lines::cr:
        return QString(shown).replace(QLatin1Char('\n'), QLatin1Char('\r'));
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
        else if (!QChar::isLowSurrogate(unit))
            bytes += 3;
    }
    return bytes;
}

QString EditorText::pasted(QString text) const
{
    text.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    if (m_lines == Lines::cr)
        text.replace(QLatin1Char('\r'), QLatin1Char('\n'));
    return text;
}

} // namespace quillorn::detail
