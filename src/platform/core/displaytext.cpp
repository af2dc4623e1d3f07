#include "platform/core/displaytext.h"

#include <QByteArray>

namespace quillorn {

namespace {

// The placeholders: U+DC80 stands for the byte 0x80, U+DCFF for 0xff.
constexpr char16_t placeholderBase = 0xdc00;

bool isPlaceholder(char16_t unit)
{
    return unit >= placeholderBase + 0x80 && unit <= placeholderBase + 0xff;
}

// The length of the valid UTF-8 sequence at `at` and its code point, or 0 when
// the byte there starts none (a stray continuation byte, an overlong form, a
// surrogate, a value past U+10FFFF, or a sequence cut short).
int validSequence(const std::string &bytes, std::size_t at, char32_t &code)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char lead = byte(at);
    if (lead < 0x80) {
        code = lead;
        return 1;
    }
    int length = 0;
    char32_t minimum = 0;
    if (lead >= 0xc2 && lead <= 0xdf) {
        length = 2;
        code = lead & 0x1f;
        minimum = 0x80;
    } else if (lead >= 0xe0 && lead <= 0xef) {
        length = 3;
        code = lead & 0x0f;
        minimum = 0x800;
    } else if (lead >= 0xf0 && lead <= 0xf4) {
        length = 4;
        code = lead & 0x07;
        minimum = 0x10000;
    } else {
        return 0;
    }
    if (bytes.size() - at < std::size_t(length))
        return 0;
    for (int i = 1; i < length; ++i) {
        const unsigned char next = byte(at + std::size_t(i));
        if ((next & 0xc0) != 0x80)
            return 0;
        code = (code << 6) | (next & 0x3f);
    }
    if (code < minimum || code > 0x10ffff || (code >= 0xd800 && code <= 0xdfff))
        return 0;
    return length;
}

void appendUtf8(std::string &bytes, char32_t code)
{
    const auto add = [&](unsigned value) { bytes.push_back(static_cast<char>(value)); };
    if (code < 0x80) {
        add(code);
    } else if (code < 0x800) {
        add(0xc0 | (code >> 6));
        add(0x80 | (code & 0x3f));
    } else if (code < 0x10000) {
        add(0xe0 | (code >> 12));
        add(0x80 | ((code >> 6) & 0x3f));
        add(0x80 | (code & 0x3f));
    } else {
        add(0xf0 | (code >> 18));
        add(0x80 | ((code >> 12) & 0x3f));
        add(0x80 | ((code >> 6) & 0x3f));
        add(0x80 | (code & 0x3f));
    }
}

} // namespace

QString displayText(const std::filesystem::path &path)
{
    // QString::fromUtf8 replaces every invalid sequence with U+FFFD.
    const std::string &bytes = path.native();
    return QString::fromUtf8(bytes.data(), static_cast<qsizetype>(bytes.size()));
}

QString displayName(const std::filesystem::path &path)
{
    return displayText(path.filename());
}

std::filesystem::path pathFromText(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    return std::filesystem::path(std::string(bytes.constData(), static_cast<std::size_t>(bytes.size())));
}

QString editableText(const std::filesystem::path &path)
{
    const std::string &bytes = path.native();
    QString text;
    text.reserve(static_cast<qsizetype>(bytes.size()));
    for (std::size_t at = 0; at < bytes.size();) {
        char32_t code = 0;
        const int length = validSequence(bytes, at, code);
        if (length == 0) {
            text.append(QChar(char16_t(placeholderBase + static_cast<unsigned char>(bytes[at]))));
            ++at;
            continue;
        }
        if (QChar::requiresSurrogates(code)) {
            text.append(QChar(QChar::highSurrogate(code)));
            text.append(QChar(QChar::lowSurrogate(code)));
        } else {
            text.append(QChar(char16_t(code)));
        }
        at += std::size_t(length);
    }
    return text;
}

std::filesystem::path pathFromEditableText(const QString &text)
{
    std::string bytes;
    bytes.reserve(std::size_t(text.size()));
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t unit = text.at(i).unicode();
        if (QChar::isHighSurrogate(unit) && i + 1 < text.size() && text.at(i + 1).isLowSurrogate()) {
            appendUtf8(bytes, QChar::surrogateToUcs4(unit, text.at(++i).unicode()));
        } else if (isPlaceholder(unit)) {
            bytes.push_back(static_cast<char>(unit - placeholderBase));
        } else if (QChar::isSurrogate(unit)) {
            appendUtf8(bytes, QChar::ReplacementCharacter); // half a pair, which has no UTF-8 form
        } else {
            appendUtf8(bytes, unit);
        }
    }
    return std::filesystem::path(std::move(bytes));
}

} // namespace quillorn
