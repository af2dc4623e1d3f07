#include "operations/detail/logtext.h"

#include <cstdint>

namespace quillorn::detail {

namespace {

// Length of the valid UTF-8 sequence at text[i] and its code point; length 0
// when the bytes there are not one.
struct Sequence {
    std::size_t length = 0;
    std::uint32_t codePoint = 0;
};

Sequence sequenceAt(const std::string &text, std::size_t i)
{
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(i);
    if (lead < 0x80)
        return {1, lead};
    std::size_t length = 0;
    std::uint32_t codePoint = 0;
    unsigned char low = 0x80, high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        codePoint = lead & 0x1Fu;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        codePoint = lead & 0x0Fu;
        low = lead == 0xE0 ? 0xA0 : 0x80;
        high = lead == 0xED ? 0x9F : 0xBF; // no UTF-16 surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        codePoint = lead & 0x07u;
        low = lead == 0xF0 ? 0x90 : 0x80;
        high = lead == 0xF4 ? 0x8F : 0xBF; // nothing above U+10FFFF
    } else
        return {};
    if (i + length > text.size())
        return {};
    for (std::size_t k = 1; k < length; ++k) {
        const unsigned char next = byte(i + k);
        if (next < (k == 1 ? low : 0x80) || next > (k == 1 ? high : 0xBF))
            return {};
        codePoint = (codePoint << 6) | (next & 0x3Fu);
    }
    return {length, codePoint};
}

const char *const replacementCharacter = "\xEF\xBF\xBD";

std::string hex(std::uint32_t value)
{
    static const char digits[] = "0123456789abcdef";
    std::string text;
    do {
        text.insert(text.begin(), digits[value & 0xF]);
        value >>= 4;
    } while (value);
    return text;
}

void appendByte(std::string &out, unsigned char byte)
{
    static const char digits[] = "0123456789ABCDEF";
    out += "\\x";
    out += digits[byte >> 4];
    out += digits[byte & 0xF];
}

void appendEscaped(std::string &out, const std::string &text)
{
    for (std::size_t i = 0; i < text.size();) {
        const Sequence sequence = sequenceAt(text, i);
        if (sequence.length == 0) {
            // Not text: the byte itself, so the exact item can still be named.
            appendByte(out, static_cast<unsigned char>(text[i]));
            ++i;
            continue;
        }
        switch (const std::uint32_t c = sequence.codePoint) {
        case '\\':
            out += "\\\\";
            break;
        case '"':
            out += "\\\"";
            break;
        case '\'':
            out += "\\'";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case 0:
            out += "\\0";
            break;
        default:
            if (c < 0x20 || (c >= 0x7F && c <= 0x9F))
                out += "\\u{" + hex(c) + "}";
            else
                out.append(text, i, sequence.length);
        }
        i += sequence.length;
    }
}

} // namespace

std::string logText(const std::string &text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const Sequence sequence = sequenceAt(text, i);
        const std::uint32_t c = sequence.codePoint;
        if (sequence.length == 0) {
            appendByte(out, static_cast<unsigned char>(text[i]));
            ++i;
            continue;
        }
        if (c == '\\')
            out += "\\\\";
        else if (c == '\t')
            out += "\\t";
        else if (c == '\n')
            out += "\\n";
        else if (c == '\r')
            out += "\\r";
        else if (c < 0x20 || (c >= 0x7F && c <= 0x9F))
            // Byte by byte, so a C1 control reads back as the two bytes it is.
            for (std::size_t k = 0; k < sequence.length; ++k)
                appendByte(out, static_cast<unsigned char>(text[i + k]));
        else
            out.append(text, i, sequence.length);
        i += sequence.length;
    }
    return out;
}

std::string logPath(const std::filesystem::path &path)
{
    return logText(path.native());
}

std::string validUtf8(const std::string &text)
{
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        if (const std::size_t length = sequenceAt(text, i).length) {
            result.append(text, i, length);
            i += length;
        } else {
            result += replacementCharacter;
            ++i;
        }
    }
    return result;
}

std::string quotedPathList(const std::vector<std::filesystem::path> &paths)
{
    std::string out = "[";
    for (std::size_t i = 0; i < paths.size(); ++i) {
        if (i > 0)
            out += ", ";
        out += '"';
        appendEscaped(out, paths[i].string());
        out += '"';
    }
    out += "]";
    return out;
}

} // namespace quillorn::detail
