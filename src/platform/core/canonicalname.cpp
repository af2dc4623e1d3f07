#include "platform/core/canonicalname.h"

#include <unicode/normalizer2.h>
#include <unicode/stringpiece.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <algorithm>

namespace quillorn {

namespace {

bool isAscii(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

} // namespace

bool isValidUtf8(std::string_view text)
{
    const auto *bytes = reinterpret_cast<const uint8_t *>(text.data());
    const int32_t length = int32_t(text.size());
    int32_t offset = 0;
    while (offset < length) {
        UChar32 character = 0;
        U8_NEXT(bytes, offset, length, character);
        if (character < 0)
            return false;
    }
    return true;
}

void appendCanonicalName(std::string &key, std::string_view name)
{
    // Most names are ASCII, which is its own NFC form.
    if (isAscii(name) || !isValidUtf8(name)) {
        key.append(name);
        return;
    }
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2 *nfc = icu::Normalizer2::getNFCInstance(status);
    const icu::UnicodeString text =
        icu::UnicodeString::fromUTF8(icu::StringPiece(name.data(), int32_t(name.size())));
    if (U_FAILURE(status) || nfc->isNormalized(text, status)) {
        key.append(name);
        return;
    }
    status = U_ZERO_ERROR;
    const icu::UnicodeString composed = nfc->normalize(text, status);
    if (U_FAILURE(status)) {
        key.append(name);
        return;
    }
    composed.toUTF8String(key);
}

} // namespace quillorn
