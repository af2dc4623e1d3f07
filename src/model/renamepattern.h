#pragma once

#include <QRegularExpression>
#include <QString>
#include <chrono>
#include <cstddef>
#include <string>

namespace quillorn {

// What the fields of the multi-rename sheet set.
struct RenameRules {
    enum class LetterCase { unchanged, lower, upper, title };

    // [N] the name without its extension, [E] the extension (a dot right
    // before an empty one is dropped), [C] the counter, [d] the modification
    // date as YYYY-MM-DD; any other text stands as it is.
    QString pattern = QStringLiteral("[N].[E]");
    long long counterStart = 1;
    long long counterStep = 1;
    int counterDigits = 1; // zero-padded to at least this many digits
    QString search;        // nothing is replaced while empty
    QString replacement;   // with a regular expression, \1 … \9 insert its groups
    bool regularExpression = false;
    bool caseSensitive = false;
    // Title case capitalises the words of the name, not its extension.
    LetterCase letterCase = LetterCase::unchanged;
};

// How a multi-rename makes each item's new name from its old one: a pattern
// with placeholders, then a search and replace over the result, then a change
// of letter case. Names are edited as editableText, so every byte the rules
// leave alone (those of a name that is not UTF-8 too) comes back unchanged.
class RenamePattern {
public:
    using Rules = RenameRules;
    using LetterCase = RenameRules::LetterCase;

    explicit RenamePattern(Rules rules = {});

    const Rules &rules() const { return m_rules; }
    // Empty when the rules can be applied; otherwise a sentence on why not (a
    // search expression that does not compile).
    const QString &problem() const { return m_problem; }

    // The new name's bytes for the item at `index` of the items renamed together
    // (the counter's place), from its name's bytes and modification time.
    std::string newName(const std::string &name, std::size_t index,
                        std::chrono::system_clock::time_point modified) const;

    // The one line the sheet shows under the pattern.
    static inline const QString hint = QStringLiteral("[N] name · [E] extension · [C] counter · [d] date "
                                                      "(YYYY-MM-DD) — a dot before an empty [E] is dropped");

private:
    QString replaced(QString text) const;

    Rules m_rules;
    QRegularExpression m_expression;
    QString m_problem;
};

} // namespace quillorn
