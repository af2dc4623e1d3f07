#include "tools/detail/textbuffer.h"

#include "platform/posix/hugepages.h"

#include <algorithm>

namespace quillorn::detail {

namespace {

// Lines longer than this get a copy of their own in huge pages when first edited.
constexpr qsizetype largeLine = qsizetype(1) << 20;

// A copy with room for more typing, filled with few page faults.
QString largeCopy(QStringView line, qsizetype growth)
{
    QString copy(line.size() + std::max<qsizetype>(growth, 1 << 16), Qt::Uninitialized);
    adviseHugePages(copy.data(), std::size_t(copy.size()) * sizeof(QChar));
    std::copy(line.begin(), line.end(), copy.begin());
    copy.truncate(line.size());
    return copy;
}

} // namespace

TextBuffer::TextBuffer(QObject *parent) : QObject(parent)
{
}

std::vector<QString> TextBuffer::splitLines(QStringView text)
{
    std::vector<QString> lines;
    lines.reserve(std::size_t(text.count(QLatin1Char('\n')) + 1));
    qsizetype start = 0;
    for (;;) {
        const qsizetype brk = text.indexOf(QLatin1Char('\n'), start);
        if (brk < 0) {
            lines.emplace_back(text.mid(start).toString());
            return lines;
        }
        lines.emplace_back(text.mid(start, brk - start).toString());
        start = brk + 1;
    }
}

std::vector<QString> TextBuffer::viewLines(const QString &text)
{
    std::vector<QString> lines;
    lines.reserve(std::size_t(text.count(QLatin1Char('\n')) + 1));
    qsizetype start = 0;
    for (;;) {
        const qsizetype brk = text.indexOf(QLatin1Char('\n'), start);
        const qsizetype end = brk < 0 ? text.size() : brk;
        lines.push_back(QString::fromRawData(text.constData() + start, end - start));
        if (brk < 0)
            return lines;
        start = brk + 1;
    }
}

TextPosition TextBuffer::endOf(TextPosition start, QStringView text)
{
    const qsizetype last = text.lastIndexOf(QLatin1Char('\n'));
    if (last < 0)
        return {start.line, start.column + text.size()};
    return {start.line + text.count(QLatin1Char('\n')), text.size() - last - 1};
}

void TextBuffer::setLines(std::vector<QString> lines, QString storage)
{
    m_lines = lines.empty() ? std::vector<QString>{QString()} : std::move(lines);
    m_storage = std::move(storage);
    m_undo.clear();
    m_redo.clear();
    m_open = false;
    invalidateStarts(0);
    Q_EMIT reset();
}

TextPosition TextBuffer::end() const
{
    return {lineCount() - 1, m_lines.back().size()};
}

TextPosition TextBuffer::clamp(TextPosition position) const
{
    if (position.line < 0)
        return {};
    if (position.line >= lineCount())
        return end();
    return {position.line, std::clamp<qsizetype>(position.column, 0, line(position.line).size())};
}

QString TextBuffer::text() const
{
    return text({{}, end()});
}

QString TextBuffer::text(TextRange range) const
{
    // Always a copy: a line may be a view of the loaded text, which goes with the buffer.
    if (range.start.line == range.end.line)
        return QStringView(line(range.start.line))
            .mid(range.start.column, range.end.column - range.start.column)
            .toString();
    QString result;
    qsizetype size = line(range.start.line).size() - range.start.column + range.end.column;
    for (qsizetype i = range.start.line + 1; i < range.end.line; ++i)
        size += line(i).size() + 1;
    result.reserve(size + 1);
    result += QStringView(line(range.start.line)).mid(range.start.column);
    for (qsizetype i = range.start.line + 1; i < range.end.line; ++i) {
        result += QLatin1Char('\n');
        result += line(i);
    }
    result += QLatin1Char('\n');
    result += QStringView(line(range.end.line)).left(range.end.column);
    return result;
}

void TextBuffer::invalidateStarts(qsizetype fromLine) const
{
    m_startsValid = std::min(m_startsValid, fromLine + 1);
}

void TextBuffer::ensureStarts(qsizetype throughLine) const
{
    if (throughLine < m_startsValid)
        return;
    m_starts.resize(m_lines.size());
    if (m_startsValid == 0) {
        m_starts[0] = 0;
        m_startsValid = 1;
    }
    for (qsizetype i = m_startsValid; i <= throughLine; ++i)
        m_starts[std::size_t(i)] = m_starts[std::size_t(i - 1)] + line(i - 1).size() + 1;
    m_startsValid = throughLine + 1;
}

qsizetype TextBuffer::offset(TextPosition position) const
{
    position = clamp(position);
    ensureStarts(position.line);
    return m_starts[std::size_t(position.line)] + position.column;
}

TextPosition TextBuffer::position(qsizetype offset) const
{
    ensureStarts(lineCount() - 1);
    const auto after = std::upper_bound(m_starts.begin(), m_starts.end(), std::max<qsizetype>(offset, 0));
    const qsizetype line = qsizetype(after - m_starts.begin()) - 1;
    return clamp({line, offset - m_starts[std::size_t(line)]});
}

qsizetype TextBuffer::length() const
{
    return offset(end());
}

QString TextBuffer::apply(TextPosition start, TextPosition end, QStringView text)
{
    QString removed = this->text({start, end});
    if (start.line == end.line && !text.contains(QLatin1Char('\n'))) {
        QString &line = m_lines[std::size_t(start.line)];
        // Still the loaded text's (a view of it, or shared with it): copied once, here.
        if (line.size() > largeLine && !line.isDetached())
            line = largeCopy(line, text.size());
        line.replace(start.column, end.column - start.column, text.data(), text.size());
    } else {
        std::vector<QString> parts = splitLines(text);
        parts.front().prepend(QStringView(line(start.line)).left(start.column));
        parts.back().append(QStringView(line(end.line)).mid(end.column));
        const auto first = m_lines.begin() + start.line;
        const qsizetype common = std::min<qsizetype>(end.line - start.line + 1, qsizetype(parts.size()));
        std::move(parts.begin(), parts.begin() + common, first);
        if (qsizetype(parts.size()) > common)
            m_lines.insert(first + common, std::make_move_iterator(parts.begin() + common),
                           std::make_move_iterator(parts.end()));
        else
            m_lines.erase(first + common, first + (end.line - start.line + 1));
    }
    invalidateStarts(start.line);
    Q_EMIT changed(TextChange{start, removed, text.toString()});
    return removed;
}

bool TextBuffer::joins(const Edit &edit, EditKind kind)
{
    if (!m_open || m_undo.empty() || kind == EditKind::other || m_undo.back().kind != kind ||
        m_undo.back().edits.size() != 1)
        return false;
    Edit &last = m_undo.back().edits.front();
    switch (kind) {
    case EditKind::typing:
        if (!edit.removed.isEmpty() || !last.removed.isEmpty() || edit.inserted.contains(QLatin1Char('\n')) ||
            endOf(last.start, last.inserted) != edit.start)
            return false;
        last.inserted += edit.inserted;
        return true;
    case EditKind::deletingBackward:
        if (!edit.inserted.isEmpty() || !last.inserted.isEmpty() ||
            endOf(edit.start, edit.removed) != last.start)
            return false;
        last.start = edit.start;
        last.removed.prepend(edit.removed);
        return true;
    case EditKind::deletingForward:
        if (!edit.inserted.isEmpty() || !last.inserted.isEmpty() || edit.start != last.start)
            return false;
        last.removed += edit.removed;
        return true;
    case EditKind::other:
        break;
    }
    return false;
}

TextPosition TextBuffer::replace(TextRange range, QStringView text, EditKind kind)
{
    range = {clamp(range.start), clamp(range.end)};
    if (range.end < range.start)
        std::swap(range.start, range.end);
    if (range.isEmpty() && text.isEmpty())
        return range.start;
    Edit edit{range.start, apply(range.start, range.end, text), text.toString()};
    m_redo.clear();
    if (!joins(edit, kind))
        m_undo.push_back(Step{{std::move(edit)}, kind});
    m_open = true;
    Q_EMIT edited();
    return endOf(range.start, text);
}

void TextBuffer::replaceLines(const std::vector<std::pair<qsizetype, QString>> &lines)
{
    if (lines.empty())
        return;
    Step step;
    step.edits.reserve(lines.size());
    for (const auto &[index, contents] : lines) {
        const TextPosition start{index, 0};
        step.edits.push_back(Edit{start, apply(start, {index, line(index).size()}, contents), contents});
    }
    m_redo.clear();
    m_undo.push_back(std::move(step));
    m_open = false;
    Q_EMIT edited();
}

std::optional<TextPosition> TextBuffer::undo()
{
    if (m_undo.empty())
        return std::nullopt;
    Step step = std::move(m_undo.back());
    m_undo.pop_back();
    TextPosition cursor;
    for (auto edit = step.edits.rbegin(); edit != step.edits.rend(); ++edit) {
        apply(edit->start, endOf(edit->start, edit->inserted), edit->removed);
        cursor = endOf(edit->start, edit->removed);
    }
    m_redo.push_back(std::move(step));
    m_open = false;
    Q_EMIT edited();
    return cursor;
}

std::optional<TextPosition> TextBuffer::redo()
{
    if (m_redo.empty())
        return std::nullopt;
    Step step = std::move(m_redo.back());
    m_redo.pop_back();
    TextPosition cursor;
    for (const Edit &edit : step.edits) {
        apply(edit.start, endOf(edit.start, edit.removed), edit.inserted);
        cursor = endOf(edit.start, edit.inserted);
    }
    m_undo.push_back(std::move(step));
    m_open = false;
    Q_EMIT edited();
    return cursor;
}

} // namespace quillorn::detail
