#pragma once

#include "tools/detail/textbuffer.h"

namespace quillorn::detail {

// Moves through a text by what a reader counts as one character (a grapheme:
// a letter with its accents, an emoji with its modifiers) or one word, across
// line breaks. Only a short stretch around the position is read, so a move in
// a line of megabytes costs what it costs in a short one.
TextPosition nextCharacter(const TextBuffer &text, TextPosition from);
TextPosition previousCharacter(const TextBuffer &text, TextPosition from);
// Back by one code point: Backspace takes an accent off its letter, as text widgets do.
TextPosition previousCodePoint(const TextBuffer &text, TextPosition from);
// To the end of the next word, or the start of the previous one.
TextPosition nextWord(const TextBuffer &text, TextPosition from);
TextPosition previousWord(const TextBuffer &text, TextPosition from);
// The word around a position, or else the character there.
TextRange wordAt(const TextBuffer &text, TextPosition at);

// Letters, digits, their marks and the underscore: what "whole words" keeps together.
bool isWordCharacter(QStringView units, qsizetype at);
bool isWordBoundary(QStringView units, qsizetype at);

} // namespace quillorn::detail
