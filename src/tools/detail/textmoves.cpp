#include "tools/detail/textmoves.h"

#include <QTextBoundaryFinder>

#include <algorithm>

namespace quillorn::detail {

namespace {

// A window of the line big enough for any cluster a person would write.
constexpr qsizetype reach = 128;

qsizetype graphemeBoundary(const QString &line, qsizetype column, bool forward)
{
    const qsizetype begin = std::max<qsizetype>(0, column - reach);
    const qsizetype end = std::min(line.size(), column + reach);
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, line.constData() + begin, int(end - begin));
    finder.setPosition(int(column - begin));
    const qsizetype found = forward ? finder.toNextBoundary() : finder.toPreviousBoundary();
    // Found at the window's own edge is a boundary only at the line's edge.
    if (found >= 0 && begin + found != column && (found > 0 || begin == 0) &&
        (begin + found < end || end == line.size()))
        return begin + found;
    // Past the window (a cluster longer than any real one): by code point.
    if (forward)
        return std::min(line.size(), column + (line[column].isHighSurrogate() ? 2 : 1));
    return std::max<qsizetype>(0, column - (column >= 2 && line[column - 1].isLowSurrogate() ? 2 : 1));
}

} // namespace

bool isWordCharacter(QStringView units, qsizetype at)
{
    if (at < 0 || at >= units.size())
        return false;
    char32_t code = units[at].unicode();
    if (QChar::isHighSurrogate(code) && at + 1 < units.size() && units[at + 1].isLowSurrogate())
        code = QChar::surrogateToUcs4(units[at].unicode(), units[at + 1].unicode());
    else if (QChar::isLowSurrogate(code) && at > 0 && units[at - 1].isHighSurrogate())
        code = QChar::surrogateToUcs4(units[at - 1].unicode(), units[at].unicode());
    if (code == u'_')
        return true;
    switch (QChar::category(code)) {
    case QChar::Mark_NonSpacing:
    case QChar::Mark_SpacingCombining:
    case QChar::Mark_Enclosing:
        return true;
    default:
        return QChar::isLetterOrNumber(code);
    }
}

bool isWordBoundary(QStringView units, qsizetype at)
{
    return !isWordCharacter(units, at - 1) || !isWordCharacter(units, at);
}

TextPosition nextCharacter(const TextBuffer &text, TextPosition from)
{
    const QString &line = text.line(from.line);
    if (from.column >= line.size())
        return from.line + 1 < text.lineCount() ? TextPosition{from.line + 1, 0} : from;
    return {from.line, graphemeBoundary(line, from.column, true)};
}

TextPosition previousCharacter(const TextBuffer &text, TextPosition from)
{
    if (from.column == 0)
        return from.line > 0 ? TextPosition{from.line - 1, text.line(from.line - 1).size()} : from;
    return {from.line, graphemeBoundary(text.line(from.line), from.column, false)};
}

TextPosition previousCodePoint(const TextBuffer &text, TextPosition from)
{
    if (from.column == 0)
        return previousCharacter(text, from);
    const QString &line = text.line(from.line);
    const bool pair =
        from.column >= 2 && line[from.column - 1].isLowSurrogate() && line[from.column - 2].isHighSurrogate();
    return {from.line, from.column - (pair ? 2 : 1)};
}

TextPosition nextWord(const TextBuffer &text, TextPosition from)
{
    if (from.column >= text.line(from.line).size())
        return nextCharacter(text, from);
    const QString &line = text.line(from.line);
    qsizetype at = from.column;
    while (at < line.size() && !isWordCharacter(line, at))
        ++at;
    while (at < line.size() && isWordCharacter(line, at))
        ++at;
    return {from.line, at};
}

TextPosition previousWord(const TextBuffer &text, TextPosition from)
{
    if (from.column == 0)
        return previousCharacter(text, from);
    const QString &line = text.line(from.line);
    qsizetype at = from.column;
    while (at > 0 && !isWordCharacter(line, at - 1))
        --at;
    while (at > 0 && isWordCharacter(line, at - 1))
        --at;
    return {from.line, at};
}

TextRange wordAt(const TextBuffer &text, TextPosition at)
{
    const QString &line = text.line(at.line);
    if (!isWordCharacter(line, at.column)) {
        if (at.column >= line.size())
            return {at, at};
        return {at, nextCharacter(text, at)};
    }
    qsizetype start = at.column;
    qsizetype end = at.column;
    while (start > 0 && isWordCharacter(line, start - 1))
        --start;
    while (end < line.size() && isWordCharacter(line, end))
        ++end;
    return {{at.line, start}, {at.line, end}};
}

} // namespace quillorn::detail
