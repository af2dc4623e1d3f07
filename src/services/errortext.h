#pragma once

#include <QString>
#include <exception>

namespace quillorn {

// The sentence a user is shown for an error where it may concern any of many
// items (a queue row): a CommanderError's own message, a system error as
// "PATH: REASON" when it names its item, otherwise the exception's what().
// Names inside the message keep their bytes as far as text allows (invalid
// UTF-8 becomes U+FFFD).
QString userFacingDescription(const std::exception &error);
QString userFacingDescription(const std::exception_ptr &error);

// The error's own description, for a sheet about one item whose path it shows
// already: a CommanderError's message, a system error's reason alone (its
// strerror text, "Permission denied"), otherwise the exception's what().
QString errorDescription(const std::exception &error);
QString errorDescription(const std::exception_ptr &error);

} // namespace quillorn
