#include "tools/detail/syntaxhighlighting.h"

#include "model/commanderthemecolours.h"

#include <QElapsedTimer>
#include <QTimerEvent>

#include <algorithm>

namespace quillorn::detail {

namespace {

// A key scans its own line and on until the state settles, for this long at
// most; the rest waits for the editor to be idle, in slices of sliceMs. While
// keys come, the slices hold off for pauseMs after each, so that a key's own
// frame never carries a slice too, even while a large text is first scanned.
constexpr int keyBudgetMs = 2;
constexpr int sliceMs = 4;
constexpr int pauseMs = 40;

} // namespace

SyntaxHighlighting::SyntaxHighlighting(Syntax syntax, const TextBuffer &text, QObject *parent)
    : QObject(parent), m_syntax(syntax), m_text(text)
{
    connect(&text, &TextBuffer::changed, this, &SyntaxHighlighting::textChanged);
    connect(&text, &TextBuffer::reset, this, &SyntaxHighlighting::textReset);
    textReset();
}

std::optional<std::vector<SyntaxToken>> SyntaxHighlighting::tokens(qsizetype line) const
{
    if (m_syntax == Syntax::none || line > m_valid || m_text.line(line).size() > longestLine)
        return std::nullopt;
    std::vector<SyntaxToken> found;
    scanLine(m_syntax, m_text.line(line), startState(line), &found);
    return found;
}

int SyntaxHighlighting::scan(qsizetype line) const
{
    const QString &text = m_text.line(line);
    return text.size() > longestLine ? startState(line) : scanLine(m_syntax, text, startState(line), nullptr);
}

void SyntaxHighlighting::textReset()
{
    m_endStates.assign(std::size_t(m_text.lineCount()), 0);
    m_valid = 0;
    m_resumeFrom = m_resumeUntil = 0;
    if (m_syntax != Syntax::none)
        m_idle.start(0, this);
}

void SyntaxHighlighting::textChanged(const TextChange &change)
{
    if (m_syntax == Syntax::none)
        return;
    const qsizetype first = change.start.line;
    const qsizetype removed = change.removedBreaks() + 1;
    const qsizetype added = change.insertedBreaks() + 1;
    const auto at = m_endStates.begin() + first;
    if (added > removed)
        m_endStates.insert(at, std::size_t(added - removed), 0);
    else if (removed > added)
        m_endStates.erase(at, at + (removed - added));
    // Lines after the change keep what the scan knew of them, as long as the
    // state that reaches them comes out as before.
    // The last line of the change holds the end state of the last line it
    // replaced: if its new end state is the same, nothing below changes.
    const qsizetype shift = added - removed;
    if (m_valid >= first + removed) {
        m_resumeFrom = first + added - 1;
        m_resumeUntil = m_valid + shift;
    } else if (m_resumeFrom >= first + removed) {
        m_resumeFrom += shift;
        m_resumeUntil += shift;
    } else if (m_resumeUntil > first) {
        m_resumeFrom = m_resumeUntil = 0;
    }
    // A line the scan has not reached yet needs nothing now.
    if (m_valid <= first) {
        m_idle.start(pauseMs, this);
        return;
    }
    m_valid = first;
    advance(keyBudgetMs, pauseMs);
}

void SyntaxHighlighting::advance(int budgetMs, int nextInMs)
{
    QElapsedTimer clock;
    clock.start();
    const qsizetype from = m_valid;
    const qsizetype lines = qsizetype(m_endStates.size());
    while (m_valid < lines) {
        const int end = scan(m_valid);
        if (m_valid >= m_resumeFrom && m_valid < m_resumeUntil && end == m_endStates[std::size_t(m_valid)]) {
            // Settled: from here on the lines start as they did before.
            Q_EMIT linesChanged(from, m_valid);
            m_valid = m_resumeUntil;
            m_resumeFrom = m_resumeUntil = 0;
            if (m_valid < lines)
                m_idle.start(nextInMs, this);
            else
                m_idle.stop();
            return;
        }
        m_endStates[std::size_t(m_valid++)] = end;
        if (clock.elapsed() >= budgetMs)
            break;
    }
    if (m_valid > from)
        Q_EMIT linesChanged(from, m_valid);
    if (m_valid < lines)
        m_idle.start(nextInMs, this);
    else
        m_idle.stop();
}

void SyntaxHighlighting::timerEvent(QTimerEvent *event)
{
    if (event->timerId() == m_idle.timerId())
        advance(sliceMs);
    else
        QObject::timerEvent(event);
}

// The colours of the syntax: the theme's accent for keywords and its quiet
// text colour for comments; the others turn the accent's hue, each lightened
// as far as it needs to read on the text's background.
std::array<QColor, syntaxKindCount> syntaxColours(const CommanderThemeColours &palette)
{
    const auto readable = [&palette](QColor colour) {
        ThemeColour shade{std::uint8_t(colour.red()), std::uint8_t(colour.green()),
                          std::uint8_t(colour.blue())};
        for (int percent = 0; percent < 100 && contrastRatio(shade, palette.pane) < 5.0; percent += 5)
            shade = blend(ThemeColour{255, 255, 255}, shade, 0.05);
        return QColor(shade);
    };
    const QColor accent = palette.accent;
    const auto turned = [&](int degrees) {
        const int hue = (std::max(accent.hsvHue(), 0) + degrees) % 360;
        return readable(
            QColor::fromHsv(hue, std::max(accent.hsvSaturation(), 110), std::max(accent.value(), 200)));
    };
    std::array<QColor, syntaxKindCount> colours;
    colours[std::size_t(SyntaxKind::keyword)] = readable(accent);
    colours[std::size_t(SyntaxKind::comment)] = QColor(textColours(palette).secondary);
    colours[std::size_t(SyntaxKind::string)] = turned(150);
    colours[std::size_t(SyntaxKind::number)] = turned(210);
    colours[std::size_t(SyntaxKind::meta)] = turned(270);
    colours[std::size_t(SyntaxKind::name)] = turned(60);
    colours[std::size_t(SyntaxKind::emphasis)] = turned(110);
    return colours;
}

} // namespace quillorn::detail
