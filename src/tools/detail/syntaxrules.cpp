#include "tools/detail/syntaxrules.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

namespace quillorn::detail {

namespace {

using Words = std::span<const std::u16string_view>;

// What the code-like families differ in; the scanner below reads them all.
struct CodeRules {
    Words keywords;
    Words literals; // drawn as numbers: true, null, None
    std::u16string_view lineComment;
    bool commentAfterSpace = false; // a shell's '#' starts a comment only where a word could start
    bool blockComments = false;     // /* */
    bool preprocessor = false;      // '#' first on a line: C's directives
    bool templates = false;         // JavaScript's `...`, which may span lines
    bool tripleQuotes = false;      // Python's """ and '''
    bool quotesSpanLines = false;   // a shell's quotes
    bool variables = false;         // $name, ${...}
    bool decorators = false;        // @name first on a line
    bool keys = false;              // JSON: a string before ':'
};

// States a line can leave open; 0 is none.
enum State : int {
    inBlockComment = 1,
    inTemplate,
    inTripleDouble,
    inTripleSingle,
    inDoubleQuote,
    inSingleQuote,
    inFence = 10, // Markdown: ``` open; inFence + 1: ~~~ open
    inMarkupComment = 20,
    inTag,
    inCData,
};

constexpr std::u16string_view cKeywords[]{
    u"alignas",   u"alignof",   u"auto",     u"bool",     u"break",     u"case",
    u"catch",     u"char",      u"class",    u"concept",  u"const",     u"consteval",
    u"constexpr", u"constinit", u"continue", u"co_await", u"co_return", u"co_yield",
    u"decltype",  u"default",   u"delete",   u"do",       u"double",    u"else",
    u"enum",      u"explicit",  u"export",   u"extern",   u"float",     u"for",
    u"friend",    u"goto",      u"if",       u"inline",   u"int",       u"long",
    u"mutable",   u"namespace", u"new",      u"noexcept", u"operator",  u"override",
    u"private",   u"protected", u"public",   u"register", u"requires",  u"restrict",
    u"return",    u"short",     u"signed",   u"sizeof",   u"static",    u"static_assert",
    u"struct",    u"switch",    u"template", u"this",     u"throw",     u"try",
    u"typedef",   u"typename",  u"union",    u"unsigned", u"using",     u"virtual",
    u"void",      u"volatile",  u"while"};
constexpr std::u16string_view cLiterals[]{u"true", u"false", u"nullptr", u"NULL"};
constexpr std::u16string_view pythonKeywords[]{
    u"and",  u"as",     u"assert", u"async", u"await",  u"break",   u"case",     u"class", u"continue",
    u"def",  u"del",    u"elif",   u"else",  u"except", u"finally", u"for",      u"from",  u"global",
    u"if",   u"import", u"in",     u"is",    u"lambda", u"match",   u"nonlocal", u"not",   u"or",
    u"pass", u"raise",  u"return", u"self",  u"try",    u"while",   u"with",     u"yield"};
constexpr std::u16string_view pythonLiterals[]{u"True", u"False", u"None"};
constexpr std::u16string_view shellKeywords[]{
    u"if",   u"then",  u"else",   u"elif",     u"fi",      u"for",      u"while",    u"until",
    u"do",   u"done",  u"case",   u"esac",     u"in",      u"function", u"select",   u"return",
    u"exit", u"local", u"export", u"readonly", u"declare", u"break",    u"continue", u"shift",
    u"set",  u"unset", u"source", u"alias",    u"trap",    u"eval",     u"exec"};
constexpr std::u16string_view shellLiterals[]{u"true", u"false"};
constexpr std::u16string_view javascriptKeywords[]{
    u"async",    u"await",    u"break",      u"case",   u"catch",    u"class", u"const",
    u"continue", u"debugger", u"default",    u"delete", u"do",       u"else",  u"export",
    u"extends",  u"finally",  u"for",        u"from",   u"function", u"get",   u"if",
    u"import",   u"in",       u"instanceof", u"let",    u"new",      u"of",    u"return",
    u"set",      u"static",   u"super",      u"switch", u"this",     u"throw", u"try",
    u"typeof",   u"var",      u"void",       u"while",  u"with",     u"yield"};
constexpr std::u16string_view javascriptLiterals[]{u"true",      u"false", u"null",
                                                   u"undefined", u"NaN",   u"Infinity"};
constexpr std::u16string_view jsonLiterals[]{u"true", u"false", u"null"};

const CodeRules cRules{.keywords = cKeywords,
                       .literals = cLiterals,
                       .lineComment = u"//",
                       .blockComments = true,
                       .preprocessor = true};
const CodeRules pythonRules{.keywords = pythonKeywords,
                            .literals = pythonLiterals,
                            .lineComment = u"#",
                            .tripleQuotes = true,
                            .decorators = true};
const CodeRules shellRules{.keywords = shellKeywords,
                           .literals = shellLiterals,
                           .lineComment = u"#",
                           .commentAfterSpace = true,
                           .quotesSpanLines = true,
                           .variables = true};
const CodeRules javascriptRules{.keywords = javascriptKeywords,
                                .literals = javascriptLiterals,
                                .lineComment = u"//",
                                .blockComments = true,
                                .templates = true};
const CodeRules jsonRules{.keywords = {}, .literals = jsonLiterals, .lineComment = {}, .keys = true};

bool contains(Words words, QStringView word)
{
    const std::u16string_view wanted(word.utf16(), std::size_t(word.size()));
    return std::find(words.begin(), words.end(), wanted) != words.end();
}

bool startsWith(QStringView line, qsizetype at, std::u16string_view what)
{
    return !what.empty() && line.mid(at).startsWith(QStringView(what.data(), qsizetype(what.size())));
}

bool identifierStart(QChar c)
{
    return c.isLetter() || c == QLatin1Char('_');
}

bool identifierPart(QChar c)
{
    return c.isLetterOrNumber() || c == QLatin1Char('_') || c.isMark();
}

bool onlySpaceBefore(QStringView line, qsizetype at)
{
    return std::all_of(line.begin(), line.begin() + at, [](QChar c) { return c.isSpace(); });
}

// Collects a line's tokens, if wanted at all (a scan for the state alone wants none).
class Out {
public:
    explicit Out(std::vector<SyntaxToken> *tokens) : m_tokens(tokens) {}
    void add(qsizetype start, qsizetype end, SyntaxKind kind) const
    {
        if (m_tokens && end > start)
            m_tokens->push_back({start, end - start, kind});
    }

private:
    std::vector<SyntaxToken> *m_tokens;
};

// The end of a quoted stretch that starts after its opening quote, or -1 when
// the line ends first.
qsizetype closingQuote(QStringView line, qsizetype from, QStringView quote, bool escapes)
{
    for (qsizetype i = from; i < line.size(); ++i) {
        if (escapes && line[i] == QLatin1Char('\\')) {
            ++i;
            continue;
        }
        if (line.mid(i).startsWith(quote))
            return i + quote.size();
    }
    return -1;
}

qsizetype numberEnd(QStringView line, qsizetype at)
{
    while (at < line.size() &&
           (line[at].isLetterOrNumber() || line[at] == QLatin1Char('.') || line[at] == QLatin1Char('_') ||
            ((line[at] == QLatin1Char('+') || line[at] == QLatin1Char('-')) &&
             (line[at - 1] == QLatin1Char('e') || line[at - 1] == QLatin1Char('E')))))
        ++at;
    return at;
}

int scanCode(const CodeRules &rules, QStringView line, int state, const Out &out)
{
    const qsizetype n = line.size();
    qsizetype i = 0;
    // What the line before left open.
    const auto closeOpen = [&](QStringView quote, bool escapes, SyntaxKind kind) {
        const qsizetype end = closingQuote(line, 0, quote, escapes);
        out.add(0, end < 0 ? n : end, kind);
        i = end < 0 ? n : end;
        return end < 0;
    };
    switch (state) {
    case inBlockComment:
        if (closeOpen(u"*/", false, SyntaxKind::comment))
            return state;
        break;
    case inTemplate:
        if (closeOpen(u"`", true, SyntaxKind::string))
            return state;
        break;
    case inTripleDouble:
        if (closeOpen(u"\"\"\"", true, SyntaxKind::string))
            return state;
        break;
    case inTripleSingle:
        if (closeOpen(u"'''", true, SyntaxKind::string))
            return state;
        break;
    case inDoubleQuote:
        if (closeOpen(u"\"", true, SyntaxKind::string))
            return state;
        break;
    case inSingleQuote:
        if (closeOpen(u"'", false, SyntaxKind::string))
            return state;
        break;
    default:
        break;
    }

    while (i < n) {
        const QChar c = line[i];
        if (c.isSpace()) {
            ++i;
        } else if (startsWith(line, i, rules.lineComment) &&
                   (!rules.commentAfterSpace || i == 0 || line[i - 1].isSpace())) {
            out.add(i, n, SyntaxKind::comment);
            return 0;
        } else if (rules.blockComments && startsWith(line, i, u"/*")) {
            const qsizetype end = closingQuote(line, i + 2, u"*/", false);
            out.add(i, end < 0 ? n : end, SyntaxKind::comment);
            if (end < 0)
                return inBlockComment;
            i = end;
        } else if (rules.preprocessor && c == QLatin1Char('#') && onlySpaceBefore(line, i)) {
            qsizetype end = i + 1;
            while (end < n && line[end].isSpace())
                ++end;
            while (end < n && identifierPart(line[end]))
                ++end;
            out.add(i, end, SyntaxKind::meta);
            i = end;
        } else if (rules.tripleQuotes && (startsWith(line, i, u"\"\"\"") || startsWith(line, i, u"'''"))) {
            const QStringView quote = line.mid(i, 3);
            const qsizetype end = closingQuote(line, i + 3, quote, true);
            out.add(i, end < 0 ? n : end, SyntaxKind::string);
            if (end < 0)
                return c == QLatin1Char('"') ? inTripleDouble : inTripleSingle;
            i = end;
        } else if (c == QLatin1Char('"') || c == QLatin1Char('\'') ||
                   (rules.templates && c == QLatin1Char('`'))) {
            const bool escapes = !(rules.quotesSpanLines && c == QLatin1Char('\''));
            const qsizetype end = closingQuote(line, i + 1, line.mid(i, 1), escapes);
            qsizetype after = end < 0 ? n : end;
            SyntaxKind kind = SyntaxKind::string;
            if (rules.keys && end >= 0) {
                while (after < n && line[after].isSpace())
                    ++after;
                if (after < n && line[after] == QLatin1Char(':'))
                    kind = SyntaxKind::name;
                after = end;
            }
            out.add(i, after, kind);
            if (end < 0) {
                if (c == QLatin1Char('`'))
                    return inTemplate;
                if (rules.quotesSpanLines)
                    return c == QLatin1Char('"') ? inDoubleQuote : inSingleQuote;
                return 0; // an unclosed string ends with its line
            }
            i = end;
        } else if (rules.variables && c == QLatin1Char('$') && i + 1 < n) {
            qsizetype end = i + 1;
            if (line[end] == QLatin1Char('{')) {
                const qsizetype close = line.indexOf(QLatin1Char('}'), end);
                end = close < 0 ? n : close + 1;
            } else if (identifierPart(line[end])) {
                while (end < n && identifierPart(line[end]))
                    ++end;
            } else {
                ++end; // $?, $#, $@
            }
            out.add(i, end, SyntaxKind::name);
            i = end;
        } else if (rules.decorators && c == QLatin1Char('@') && onlySpaceBefore(line, i)) {
            qsizetype end = i + 1;
            while (end < n && (identifierPart(line[end]) || line[end] == QLatin1Char('.')))
                ++end;
            out.add(i, end, SyntaxKind::meta);
            i = end;
        } else if (c.isDigit() || (c == QLatin1Char('.') && i + 1 < n && line[i + 1].isDigit())) {
            const qsizetype end = numberEnd(line, i + 1);
            out.add(i, end, SyntaxKind::number);
            i = end;
        } else if (identifierStart(c)) {
            qsizetype end = i + 1;
            while (end < n && identifierPart(line[end]))
                ++end;
            const QStringView word = line.mid(i, end - i);
            if (contains(rules.keywords, word))
                out.add(i, end, SyntaxKind::keyword);
            else if (contains(rules.literals, word))
                out.add(i, end, SyntaxKind::number);
            i = end;
        } else {
            ++i;
        }
    }
    return 0;
}

// Inline marks of a Markdown line from `from` on: `code`, **strong**, *emphasis*, [links](...).
void scanInline(QStringView line, qsizetype from, const Out &out)
{
    const qsizetype n = line.size();
    for (qsizetype i = from; i < n;) {
        const QChar c = line[i];
        if (c == QLatin1Char('\\')) {
            i += 2;
        } else if (c == QLatin1Char('`')) {
            const qsizetype end = line.indexOf(QLatin1Char('`'), i + 1);
            out.add(i, end < 0 ? n : end + 1, SyntaxKind::string);
            i = end < 0 ? n : end + 1;
        } else if ((c == QLatin1Char('*') || c == QLatin1Char('_')) && i + 1 < n && !line[i + 1].isSpace() &&
                   !(c == QLatin1Char('_') && i > 0 && line[i - 1].isLetterOrNumber())) { // not snake_case
            const bool strong = line[i + 1] == c;
            const QStringView mark = line.mid(i, strong ? 2 : 1);
            const qsizetype end = line.indexOf(mark, i + mark.size() + 1);
            if (end < 0) {
                i += mark.size();
                continue;
            }
            out.add(i, end + mark.size(), SyntaxKind::emphasis);
            i = end + mark.size();
        } else if (c == QLatin1Char('[')) {
            const qsizetype close = line.indexOf(QLatin1String("]("), i + 1);
            const qsizetype end = close < 0 ? -1 : line.indexOf(QLatin1Char(')'), close + 2);
            if (end < 0) {
                ++i;
                continue;
            }
            out.add(i, close + 1, SyntaxKind::name);
            out.add(close + 1, end + 1, SyntaxKind::string);
            i = end + 1;
        } else {
            ++i;
        }
    }
}

int scanMarkdown(QStringView line, int state, const Out &out)
{
    const qsizetype n = line.size();
    qsizetype indent = 0;
    while (indent < n && line[indent].isSpace())
        ++indent;
    const QStringView trimmed = line.mid(indent).trimmed();
    if (state == inFence || state == inFence + 1) {
        const bool closes =
            trimmed.startsWith(state == inFence ? QLatin1String("```") : QLatin1String("~~~"));
        out.add(0, n, closes ? SyntaxKind::meta : SyntaxKind::string);
        return closes ? 0 : state;
    }
    if (indent <= 3 &&
        (trimmed.startsWith(QLatin1String("```")) || trimmed.startsWith(QLatin1String("~~~")))) {
        out.add(0, n, SyntaxKind::meta);
        return trimmed.front() == QLatin1Char('`') ? inFence : inFence + 1;
    }
    if (indent <= 3 && trimmed.startsWith(QLatin1Char('#'))) {
        const qsizetype hashes =
            std::find_if(trimmed.begin(), trimmed.end(), [](QChar c) { return c != QLatin1Char('#'); }) -
            trimmed.begin();
        if (hashes <= 6 && (hashes == trimmed.size() || trimmed[hashes].isSpace())) {
            out.add(0, n, SyntaxKind::keyword);
            return 0;
        }
    }
    if (trimmed.size() >= 3 && (trimmed.count(QLatin1Char('-')) == trimmed.size() ||
                                trimmed.count(QLatin1Char('*')) == trimmed.size())) {
        out.add(0, n, SyntaxKind::meta); // a rule
        return 0;
    }
    qsizetype from = indent;
    if (!trimmed.isEmpty()) {
        const QChar first = trimmed.front();
        qsizetype digits = 0;
        while (digits < trimmed.size() && trimmed[digits].isDigit())
            ++digits;
        qsizetype marker = 0;
        if (first == QLatin1Char('>'))
            marker = 1;
        else if ((first == QLatin1Char('-') || first == QLatin1Char('*') || first == QLatin1Char('+')) &&
                 trimmed.size() > 1 && trimmed[1].isSpace())
            marker = 1;
        else if (digits > 0 && digits + 1 < trimmed.size() &&
                 (trimmed[digits] == QLatin1Char('.') || trimmed[digits] == QLatin1Char(')')) &&
                 trimmed[digits + 1].isSpace())
            marker = digits + 1;
        out.add(indent, indent + marker, SyntaxKind::meta);
        from = indent + marker;
    }
    scanInline(line, from, out);
    return 0;
}

int scanMarkup(QStringView line, int state, const Out &out)
{
    const qsizetype n = line.size();
    qsizetype i = 0;
    if (state == inMarkupComment || state == inCData) {
        const qsizetype end = closingQuote(line, 0, state == inMarkupComment ? u"-->" : u"]]>", false);
        out.add(0, end < 0 ? n : end, state == inMarkupComment ? SyntaxKind::comment : SyntaxKind::string);
        if (end < 0)
            return state;
        i = end;
        state = 0;
    }
    while (i < n) {
        if (state == inTag) { // attributes, until the tag closes
            const QChar c = line[i];
            if (c == QLatin1Char('>')) {
                out.add(i, i + 1, SyntaxKind::keyword);
                state = 0;
                ++i;
            } else if (c == QLatin1Char('"') || c == QLatin1Char('\'')) {
                const qsizetype end = closingQuote(line, i + 1, line.mid(i, 1), false);
                out.add(i, end < 0 ? n : end, SyntaxKind::string);
                i = end < 0 ? n : end;
            } else if (identifierStart(c) || c == QLatin1Char(':')) {
                qsizetype end = i + 1;
                while (end < n && (identifierPart(line[end]) || line[end] == QLatin1Char('-') ||
                                   line[end] == QLatin1Char(':') || line[end] == QLatin1Char('.')))
                    ++end;
                out.add(i, end, SyntaxKind::name);
                i = end;
            } else {
                ++i;
            }
            continue;
        }
        const qsizetype open = line.indexOf(QLatin1Char('<'), i);
        const qsizetype entity = line.indexOf(QLatin1Char('&'), i);
        if (entity >= 0 && (open < 0 || entity < open)) {
            const qsizetype semicolon = line.indexOf(QLatin1Char(';'), entity);
            if (semicolon > entity && semicolon - entity <= 10)
                out.add(entity, semicolon + 1, SyntaxKind::number);
            i = entity + 1;
            continue;
        }
        if (open < 0)
            break;
        if (startsWith(line, open, u"<!--")) {
            const qsizetype end = closingQuote(line, open + 4, u"-->", false);
            out.add(open, end < 0 ? n : end, SyntaxKind::comment);
            if (end < 0)
                return inMarkupComment;
            i = end;
        } else if (startsWith(line, open, u"<![CDATA[")) {
            const qsizetype end = closingQuote(line, open + 9, u"]]>", false);
            out.add(open, end < 0 ? n : end, SyntaxKind::string);
            if (end < 0)
                return inCData;
            i = end;
        } else {
            qsizetype end = open + 1;
            while (end < n && (line[end] == QLatin1Char('/') || line[end] == QLatin1Char('!') ||
                               line[end] == QLatin1Char('?')))
                ++end;
            while (end < n && (identifierPart(line[end]) || line[end] == QLatin1Char('-') ||
                               line[end] == QLatin1Char(':') || line[end] == QLatin1Char('.')))
                ++end;
            out.add(open, end, SyntaxKind::keyword);
            state = inTag;
            i = end;
        }
    }
    return state;
}

// The value of a key: quoted, a number or a literal word, else plain.
void scanValue(QStringView line, qsizetype from, const Out &out)
{
    while (from < line.size() && line[from].isSpace())
        ++from;
    if (from >= line.size())
        return;
    const QChar c = line[from];
    if (c == QLatin1Char('"') || c == QLatin1Char('\'')) {
        const qsizetype end = closingQuote(line, from + 1, line.mid(from, 1), c == QLatin1Char('"'));
        out.add(from, end < 0 ? line.size() : end, SyntaxKind::string);
        return;
    }
    const QStringView value = line.mid(from).trimmed();
    static constexpr std::u16string_view literals[]{u"true", u"false", u"yes",  u"no",
                                                    u"on",   u"off",   u"null", u"~"};
    bool number = false;
    (void)value.toDouble(&number);
    if (number || contains(literals, value))
        out.add(from, from + value.size(), SyntaxKind::number);
}

int scanIni(QStringView line, const Out &out)
{
    const QStringView trimmed = line.trimmed();
    if (trimmed.isEmpty())
        return 0;
    const qsizetype start = line.indexOf(trimmed);
    if (trimmed.front() == QLatin1Char(';') || trimmed.front() == QLatin1Char('#')) {
        out.add(start, line.size(), SyntaxKind::comment);
    } else if (trimmed.front() == QLatin1Char('[')) {
        out.add(start, start + trimmed.size(), SyntaxKind::keyword);
    } else {
        qsizetype equals = line.indexOf(QLatin1Char('='), start);
        if (equals < 0)
            equals = line.indexOf(QLatin1Char(':'), start);
        if (equals > start) {
            qsizetype key = equals;
            while (key > start && line[key - 1].isSpace())
                --key;
            out.add(start, key, SyntaxKind::name);
            scanValue(line, equals + 1, out);
        }
    }
    return 0;
}

int scanYaml(QStringView line, const Out &out)
{
    const qsizetype n = line.size();
    qsizetype i = 0;
    while (i < n && line[i].isSpace())
        ++i;
    if (i == 0 && (line.startsWith(QLatin1String("---")) || line.startsWith(QLatin1String("...")))) {
        out.add(0, 3, SyntaxKind::meta);
        i = 3;
    }
    while (i + 1 < n && line[i] == QLatin1Char('-') && line[i + 1].isSpace()) { // list items
        out.add(i, i + 1, SyntaxKind::meta);
        i += 2;
        while (i < n && line[i].isSpace())
            ++i;
    }
    // A comment: '#' where a word could start, outside quotes.
    qsizetype comment = -1;
    QChar quote;
    for (qsizetype j = i; j < n; ++j) {
        if (!quote.isNull()) {
            if (line[j] == quote)
                quote = QChar();
        } else if (line[j] == QLatin1Char('"') || line[j] == QLatin1Char('\'')) {
            quote = line[j];
        } else if (line[j] == QLatin1Char('#') && (j == 0 || line[j - 1].isSpace())) {
            comment = j;
            break;
        }
    }
    const QStringView content = line.mid(0, comment < 0 ? n : comment);
    qsizetype colon = -1;
    for (qsizetype j = i; j < content.size() && colon < 0; ++j) {
        if (content[j] == QLatin1Char('"') || content[j] == QLatin1Char('\'')) {
            const qsizetype end = content.indexOf(content[j], j + 1);
            j = end < 0 ? content.size() : end;
        } else if (content[j] == QLatin1Char(':') && (j + 1 == content.size() || content[j + 1].isSpace())) {
            colon = j;
        }
    }
    qsizetype value = i;
    if (colon > i) {
        out.add(i, colon, SyntaxKind::name);
        value = colon + 1;
    }
    while (value < content.size() && content[value].isSpace())
        ++value;
    if (value < content.size() && (content[value] == QLatin1Char('&') || content[value] == QLatin1Char('*') ||
                                   content[value] == QLatin1Char('!'))) {
        qsizetype end = value + 1;
        while (end < content.size() && !content[end].isSpace())
            ++end;
        out.add(value, end, SyntaxKind::meta);
    } else {
        scanValue(content, value, out);
    }
    if (comment >= 0)
        out.add(comment, n, SyntaxKind::comment);
    return 0;
}

} // namespace

Syntax syntaxFor(const QStringList &mimeTypes, QStringView fileName)
{
    static const std::array<std::pair<const char *, Syntax>, 22> byType{{
        {"text/x-csrc", Syntax::c},
        {"text/x-chdr", Syntax::c},
        {"text/x-c++src", Syntax::c},
        {"text/x-c++hdr", Syntax::c},
        {"text/x-python", Syntax::python},
        {"text/x-python3", Syntax::python},
        {"application/x-shellscript", Syntax::shell},
        {"text/x-shellscript", Syntax::shell},
        {"application/json", Syntax::json},
        {"application/javascript", Syntax::javascript},
        {"text/javascript", Syntax::javascript},
        {"application/ecmascript", Syntax::javascript},
        {"text/markdown", Syntax::markdown},
        {"text/html", Syntax::markup},
        {"application/xml", Syntax::markup},
        {"text/xml", Syntax::markup},
        {"application/x-yaml", Syntax::yaml},
        {"application/yaml", Syntax::yaml},
        {"application/x-desktop", Syntax::ini},
        {"text/x-systemd-unit", Syntax::ini},
        {"application/toml", Syntax::ini},
        {"text/x-ini", Syntax::ini},
    }};
    // The file's own type first, then what it inherits: JSON before JavaScript.
    for (const QString &type : mimeTypes)
        for (const auto &[name, syntax] : byType)
            if (type == QLatin1String(name))
                return syntax;
    for (const char *suffix : {".ini", ".conf", ".cfg", ".toml", ".properties"})
        if (fileName.endsWith(QLatin1String(suffix), Qt::CaseInsensitive))
            return Syntax::ini;
    return Syntax::none;
}

int scanLine(Syntax syntax, QStringView line, int state, std::vector<SyntaxToken> *tokens)
{
    const Out out(tokens);
    switch (syntax) {
    case Syntax::none:
        return 0;
    case Syntax::c:
        return scanCode(cRules, line, state, out);
    case Syntax::python:
        return scanCode(pythonRules, line, state, out);
    case Syntax::shell:
        return scanCode(shellRules, line, state, out);
    case Syntax::javascript:
        return scanCode(javascriptRules, line, state, out);
    case Syntax::json:
        return scanCode(jsonRules, line, state, out);
    case Syntax::markdown:
        return scanMarkdown(line, state, out);
    case Syntax::markup:
        return scanMarkup(line, state, out);
    case Syntax::ini:
        return scanIni(line, out);
    case Syntax::yaml:
        return scanYaml(line, out);
    }
    return 0;
}

} // namespace quillorn::detail
