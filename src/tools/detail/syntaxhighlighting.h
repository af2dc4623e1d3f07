#pragma once

#include "tools/detail/syntaxrules.h"
#include "tools/detail/textbuffer.h"

#include <QBasicTimer>
#include <QColor>
#include <QObject>

#include <array>
#include <optional>
#include <vector>

namespace quillorn {
struct CommanderThemeColours;
}

namespace quillorn::detail {

// The colour of each SyntaxKind in a theme, every one readable on its text's
// background (the pane colour).
std::array<QColor, syntaxKindCount> syntaxColours(const CommanderThemeColours &palette);

// The highlighting of one text in one syntax, kept up to date as it changes.
// What carries over from line to line (an open comment, a string or a fenced
// block) is kept per line; lines are scanned from the top in slices of a few
// milliseconds while the editor is idle, and again from an edited line until
// the state after a line comes out as before. A key therefore never waits for
// more than its own line and a slice, whatever the size of the text; a line
// further down than the scan has reached is drawn plain until it gets there.
class SyntaxHighlighting : public QObject {
    Q_OBJECT
public:
    // Lines longer than this are drawn plain; what carries over passes them unchanged.
    static constexpr qsizetype longestLine = 10'000;

    SyntaxHighlighting(Syntax syntax, const TextBuffer &text, QObject *parent = nullptr);

    Syntax syntax() const { return m_syntax; }
    // The line's tokens, once the scan knows how the line starts.
    std::optional<std::vector<SyntaxToken>> tokens(qsizetype line) const;
    // Whether every line has been scanned since the last change.
    bool complete() const { return m_valid >= qsizetype(m_endStates.size()); }

Q_SIGNALS:
    // The tokens of lines [first, last] may differ from what was drawn.
    void linesChanged(qsizetype first, qsizetype last);

protected:
    void timerEvent(QTimerEvent *event) override;

private:
    int startState(qsizetype line) const { return line == 0 ? 0 : m_endStates[std::size_t(line - 1)]; }
    int scan(qsizetype line) const;
    void textChanged(const TextChange &change);
    void textReset();
    // Scans on from the first line not known, for about `budgetMs`; what is
    // left goes on `nextInMs` later.
    void advance(int budgetMs, int nextInMs = 0);

    Syntax m_syntax;
    const TextBuffer &m_text;
    std::vector<int> m_endStates;
    qsizetype m_valid = 0; // lines [0, m_valid) have their end state
    // Lines known before a change, still right once the scan reaches them in the state it had.
    qsizetype m_resumeFrom = 0;
    qsizetype m_resumeUntil = 0;
    QBasicTimer m_idle;
};

} // namespace quillorn::detail
