#pragma once

#include <QString>
#include <exception>

namespace quillorn {

// The sentence a user is shown for an error: a CommanderError's own message, a
// system error's strerror text (never the "path: " prefix of what()), otherwise
// the exception's what(). Names inside the message keep their bytes as far as
// text allows (invalid UTF-8 becomes U+FFFD).
QString userFacingDescription(const std::exception &error);
QString userFacingDescription(const std::exception_ptr &error);

} // namespace quillorn
