#pragma once

#include "tools/detail/textbuffer.h"

#include <QRegularExpression>
#include <QString>

#include <optional>
#include <utility>
#include <vector>

namespace quillorn::detail {

struct SearchQuery {
    QString pattern;
    bool matchCase = false;
    bool wholeWords = false;
    bool regularExpression = false;
};

// Finds and replaces what a query matches, one line at a time: a match never
// spans a line break, and no empty match is ever found. Without "match case"
// letters match whatever their case, in every script.
class TextSearch {
public:
    explicit TextSearch(SearchQuery query);

    bool isValid() const;
    // Why a regular expression does not compile; empty otherwise.
    QString error() const;

    // The first match at or after `from`, or the last one that starts before it
    // going backward, continuing from the other end of the text.
    std::optional<TextRange> find(const TextBuffer &text, TextPosition from, bool backward) const;
    // What replaces `range` if it is a match: `with`, where a regular
    // expression's \1 to \9 stand for its groups (\0 for the whole match).
    std::optional<QString> replacement(const TextBuffer &text, TextRange range, const QString &with) const;
    // Every line that holds a match, with its matches replaced; `count` gets how many.
    std::vector<std::pair<qsizetype, QString>> replaceAll(const TextBuffer &text, const QString &with,
                                                          qsizetype *count) const;

private:
    struct Match {
        qsizetype start = 0;
        qsizetype length = 0;
        QRegularExpressionMatch groups;
    };
    std::optional<Match> next(QStringView line, qsizetype from) const;
    std::optional<Match> last(QStringView line, qsizetype before) const;
    bool wordsAround(QStringView line, qsizetype start, qsizetype length) const;
    QString expanded(const Match &match, const QString &with) const;

    SearchQuery m_query;
    QRegularExpression m_expression;
};

} // namespace quillorn::detail
