#include "model/renamepattern.h"

#include "platform/core/displaytext.h"

#include <QDateTime>

namespace quillorn {

namespace {

// editableText writes a byte outside UTF-8 as a lone surrogate U+DC80…U+DCFF,
// which the regular-expression engine refuses as invalid UTF-16 and case
// conversion turns into U+FFFD. While the rules work, each stands in for a
// code point of the last private-use plane, U+10FF80…U+10FFFF (a valid
// surrogate pair without letter case), and goes back after.
constexpr char16_t placeholderFirst = 0xdc80, placeholderLast = 0xdcff;
constexpr char16_t standInHigh = 0xdbff, standInLowFirst = 0xdf80;

bool hasStandIns(const QString &text)
{
    for (qsizetype i = 0; i + 1 < text.size(); ++i)
        if (text[i].unicode() == standInHigh && text[i + 1].unicode() >= standInLowFirst)
            return true;
    return false;
}

QString withStandIns(const QString &text)
{
    QString out;
    out.reserve(text.size() + 4);
    for (const QChar c : text) {
        const char16_t unit = c.unicode();
        if (unit >= placeholderFirst && unit <= placeholderLast) {
            out += QChar(standInHigh);
            out += QChar(char16_t(standInLowFirst + (unit - placeholderFirst)));
        } else {
            out += c;
        }
    }
    return out;
}

QString withoutStandIns(const QString &text)
{
    QString out;
    out.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i].unicode() == standInHigh && i + 1 < text.size() &&
            text[i + 1].unicode() >= standInLowFirst) {
            out += QChar(char16_t(placeholderFirst + (text[i + 1].unicode() - standInLowFirst)));
            ++i;
        } else {
            out += text[i];
        }
    }
    return out;
}

// A word starts at a letter after anything but a letter, a digit or an
// apostrophe ("don't" stays one word).
QString titleCased(const QString &text)
{
    QString out = text.toLower();
    bool inWord = false;
    for (QChar &c : out) {
        if (c.isLetter() && !inWord)
            c = c.toUpper();
        inWord = c.isLetterOrNumber() || c == QLatin1Char('\'') || c == QChar(0x2019);
    }
    return out;
}

QString counter(long long value, int digits)
{
    const QString number = QString::number(value < 0 ? -value : value);
    const QString padded =
        number.size() < digits ? QString(digits - number.size(), QLatin1Char('0')) + number : number;
    return value < 0 ? QLatin1Char('-') + padded : padded;
}

QString date(std::chrono::system_clock::time_point modified)
{
    if (modified == std::chrono::system_clock::time_point::min())
        return {};
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(modified.time_since_epoch()).count();
    return QDateTime::fromMSecsSinceEpoch(ms).date().toString(QStringLiteral("yyyy-MM-dd"));
}

} // namespace

RenamePattern::RenamePattern(Rules rules) : m_rules(std::move(rules))
{
    if (!m_rules.regularExpression || m_rules.search.isEmpty())
        return;
    m_expression =
        QRegularExpression(m_rules.search, m_rules.caseSensitive ? QRegularExpression::NoPatternOption
                                                                 : QRegularExpression::CaseInsensitiveOption);
    if (!m_expression.isValid())
        m_problem = QStringLiteral("The search expression is not valid: %1 (at %2).")
                        .arg(m_expression.errorString())
                        .arg(m_expression.patternErrorOffset() + 1);
}

std::string RenamePattern::newName(const std::string &name, std::size_t index,
                                   std::chrono::system_clock::time_point modified) const
{
    // A name that holds a stand-in already could not be told apart from one made
    // here: its bytes outside UTF-8 are then worked on as they are.
    QString old = editableText(std::filesystem::path(name));
    const bool standIns = !hasStandIns(old);
    if (standIns)
        old = withStandIns(old);
    // A leading dot starts a hidden name, not an extension; a trailing dot has none after it.
    const qsizetype dot = old.lastIndexOf(QLatin1Char('.'));
    const bool hasExtension = dot > 0 && dot + 1 < old.size();
    const QString stem = hasExtension ? old.left(dot) : old;
    const QString extension = hasExtension ? old.mid(dot + 1) : QString();

    const QString &pattern = m_rules.pattern;
    QString text;
    for (qsizetype i = 0; i < pattern.size(); ++i) {
        const QStringView rest = QStringView(pattern).mid(i);
        if (rest.startsWith(u"[N]")) {
            text += stem;
        } else if (rest.startsWith(u"[E]")) {
            if (extension.isEmpty() && i > 0 && pattern[i - 1] == QLatin1Char('.') &&
                text.endsWith(QLatin1Char('.')))
                text.chop(1);
            text += extension;
        } else if (rest.startsWith(u"[C]")) {
            text += counter(m_rules.counterStart + static_cast<long long>(index) * m_rules.counterStep,
                            m_rules.counterDigits);
        } else if (rest.startsWith(u"[d]")) {
            text += date(modified);
        } else {
            text += pattern[i];
            continue;
        }
        i += 2;
    }

    text = replaced(std::move(text));
    switch (m_rules.letterCase) {
    case LetterCase::unchanged:
        break;
    case LetterCase::lower:
        text = text.toLower();
        break;
    case LetterCase::upper:
        text = text.toUpper();
        break;
    case LetterCase::title: {
        const qsizetype last = text.lastIndexOf(QLatin1Char('.'));
        const qsizetype end = last > 0 && last + 1 < text.size() ? last : text.size();
        text = titleCased(text.left(end)) + text.mid(end);
        break;
    }
    }
    return pathFromEditableText(standIns ? withoutStandIns(text) : text).native();
}

QString RenamePattern::replaced(QString text) const
{
    if (m_rules.search.isEmpty() || !m_problem.isEmpty())
        return text;
    if (!m_rules.regularExpression)
        return text.replace(m_rules.search, m_rules.replacement,
                            m_rules.caseSensitive ? Qt::CaseSensitive : Qt::CaseInsensitive);
    return text.replace(m_expression, m_rules.replacement);
}

} // namespace quillorn
