#include "tools/detail/textsearch.h"

#include "tools/detail/textmoves.h"

namespace quillorn::detail {

TextSearch::TextSearch(SearchQuery query) : m_query(std::move(query))
{
    if (m_query.regularExpression)
        m_expression = QRegularExpression(
            m_query.pattern, QRegularExpression::UseUnicodePropertiesOption |
                                 (m_query.matchCase ? QRegularExpression::NoPatternOption
                                                    : QRegularExpression::CaseInsensitiveOption));
}

bool TextSearch::isValid() const
{
    return !m_query.pattern.isEmpty() && (!m_query.regularExpression || m_expression.isValid());
}

QString TextSearch::error() const
{
    return m_query.regularExpression && !m_expression.isValid() ? m_expression.errorString() : QString();
}

bool TextSearch::wordsAround(QStringView line, qsizetype start, qsizetype length) const
{
    return !m_query.wholeWords || (isWordBoundary(line, start) && isWordBoundary(line, start + length));
}

std::optional<TextSearch::Match> TextSearch::next(QStringView line, qsizetype from) const
{
    if (!isValid())
        return std::nullopt;
    const Qt::CaseSensitivity sensitivity = m_query.matchCase ? Qt::CaseSensitive : Qt::CaseInsensitive;
    while (from <= line.size()) {
        Match found;
        if (m_query.regularExpression) {
            found.groups = m_expression.match(line, from);
            if (!found.groups.hasMatch())
                return std::nullopt;
            found.start = found.groups.capturedStart();
            found.length = found.groups.capturedLength();
        } else {
            found.start = line.indexOf(m_query.pattern, from, sensitivity);
            if (found.start < 0)
                return std::nullopt;
            found.length = m_query.pattern.size();
        }
        if (found.length > 0 && wordsAround(line, found.start, found.length))
            return found;
        from = found.start + 1;
    }
    return std::nullopt;
}

std::optional<TextSearch::Match> TextSearch::last(QStringView line, qsizetype before) const
{
    std::optional<Match> latest;
    // The same matches as going forward, so back and forth agree on where they are.
    for (std::optional<Match> match = next(line, 0); match && match->start < before;
         match = next(line, match->start + match->length))
        latest = match;
    return latest;
}

std::optional<TextRange> TextSearch::find(const TextBuffer &text, TextPosition from, bool backward) const
{
    if (!isValid())
        return std::nullopt;
    const qsizetype lines = text.lineCount();
    const auto range = [](qsizetype line, const Match &match) {
        return TextRange{{line, match.start}, {line, match.start + match.length}};
    };
    // Every line once, starting with the cursor's, and that line again for
    // what lies on the other side of the cursor.
    for (qsizetype step = 0; step <= lines; ++step) {
        const qsizetype line =
            backward ? ((from.line - step) % lines + lines) % lines : (from.line + step) % lines;
        const QString &units = text.line(line);
        std::optional<Match> match;
        if (step == 0)
            match = backward ? last(units, from.column) : next(units, from.column);
        else if (step < lines)
            match = backward ? last(units, units.size() + 1) : next(units, 0);
        else if (backward)
            match = last(units, units.size() + 1);
        else
            match = next(units, 0);
        if (match && step == lines && (backward ? match->start < from.column : match->start >= from.column))
            match.reset(); // seen at the first step already
        if (match)
            return range(line, *match);
    }
    return std::nullopt;
}

QString TextSearch::expanded(const Match &match, const QString &with) const
{
    if (!m_query.regularExpression)
        return with;
    QString result;
    result.reserve(with.size());
    for (qsizetype i = 0; i < with.size(); ++i) {
        if (with[i] == QLatin1Char('\\') && i + 1 < with.size()) {
            const QChar next = with[i + 1];
            if (next.isDigit()) {
                result += match.groups.captured(next.digitValue());
                ++i;
                continue;
            }
            if (next == QLatin1Char('\\')) {
                result += next;
                ++i;
                continue;
            }
        }
        result += with[i];
    }
    return result;
}

std::optional<QString> TextSearch::replacement(const TextBuffer &text, TextRange range,
                                               const QString &with) const
{
    if (range.start.line != range.end.line)
        return std::nullopt;
    const std::optional<Match> match = next(text.line(range.start.line), range.start.column);
    if (!match || match->start != range.start.column || match->start + match->length != range.end.column)
        return std::nullopt;
    return expanded(*match, with);
}

std::vector<std::pair<qsizetype, QString>> TextSearch::replaceAll(const TextBuffer &text, const QString &with,
                                                                  qsizetype *count) const
{
    std::vector<std::pair<qsizetype, QString>> changed;
    qsizetype replaced = 0;
    for (qsizetype line = 0; isValid() && line < text.lineCount(); ++line) {
        const QString &units = text.line(line);
        std::optional<Match> match = next(units, 0);
        if (!match)
            continue;
        QString result;
        qsizetype done = 0;
        for (; match; match = next(units, match->start + match->length)) {
            result += QStringView(units).mid(done, match->start - done);
            result += expanded(*match, with);
            done = match->start + match->length;
            ++replaced;
        }
        result += QStringView(units).mid(done);
        changed.emplace_back(line, std::move(result));
    }
    if (count)
        *count = replaced;
    return changed;
}

} // namespace quillorn::detail
