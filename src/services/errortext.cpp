#include "services/errortext.h"

#include "operations/userfacing.h"

namespace quillorn {

QString userFacingDescription(const std::exception &error)
{
    // Paths are bytes; what cannot be decoded is shown as U+FFFD.
    return QString::fromStdString(userFacingText(error));
}

QString userFacingDescription(const std::exception_ptr &error)
{
    if (!error)
        return {};
    try {
        std::rethrow_exception(error);
    } catch (const std::exception &known) {
        return userFacingDescription(known);
    } catch (...) {
        return QStringLiteral("An unexpected error occurred.");
    }
}

} // namespace quillorn
