#include "services/errortext.h"

#include "operations/userfacing.h"

#include <system_error>

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

QString errorDescription(const std::exception &error)
{
    if (const auto *system = dynamic_cast<const std::system_error *>(&error))
        return QString::fromStdString(system->code().message());
    return userFacingDescription(error);
}

QString errorDescription(const std::exception_ptr &error)
{
    if (!error)
        return {};
    try {
        std::rethrow_exception(error);
    } catch (const std::exception &known) {
        return errorDescription(known);
    } catch (...) {
        return QStringLiteral("An unexpected error occurred.");
    }
}

} // namespace quillorn
