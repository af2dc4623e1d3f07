#include "operations/detail/composedorder.h"

#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

namespace quillorn::detail {

std::string composedForm(const std::string &utf8)
{
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2 *nfc = icu::Normalizer2::getNFCInstance(status);
    if (U_FAILURE(status))
        return utf8;
    // ICU turns invalid sequences into U+FFFD; comparing that would merge distinct names.
    const icu::UnicodeString text = icu::UnicodeString::fromUTF8(utf8);
    std::string roundTrip;
    text.toUTF8String(roundTrip);
    if (roundTrip != utf8)
        return utf8;
    const icu::UnicodeString composed = nfc->normalize(text, status);
    if (U_FAILURE(status))
        return utf8;
    std::string result;
    composed.toUTF8String(result);
    return result;
}

} // namespace quillorn::detail
