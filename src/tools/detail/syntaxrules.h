#pragma once

#include <QString>
#include <QStringList>
#include <QStringView>

#include <vector>

namespace quillorn::detail {

// The families of text the editor colours, each by a small hand-written scanner.
enum class Syntax { none, c, python, shell, javascript, json, markdown, markup, ini, yaml };

// What a stretch of a line is, each drawn in a colour of its own.
enum class SyntaxKind : unsigned char { keyword, comment, string, number, meta, name, emphasis };
inline constexpr int syntaxKindCount = 7;

struct SyntaxToken {
    qsizetype start = 0;
    qsizetype length = 0;
    SyntaxKind kind = SyntaxKind::keyword;
    friend bool operator==(const SyntaxToken &, const SyntaxToken &) = default;
};

// The syntax of a file by its MIME type and those it inherits (QMimeType's
// name and allAncestors()), else by the file name for the kinds the MIME
// database has no type for (.ini, .conf, .cfg, .toml).
Syntax syntaxFor(const QStringList &mimeTypes, QStringView fileName);

// Scans one line that starts in `state` (0 at the top of a text), appends its
// tokens and returns the state the next line starts in.
int scanLine(Syntax syntax, QStringView line, int state, std::vector<SyntaxToken> *tokens);

} // namespace quillorn::detail
