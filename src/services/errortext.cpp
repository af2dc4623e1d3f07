#include "services/errortext.h"

#include "operations/commandererror.h"

#include <system_error>

namespace quillorn {

QString userFacingDescription(const std::exception &error)
{
    if (const auto *commander = dynamic_cast<const CommanderError *>(&error))
        return QString::fromStdString(commander->errorDescription());
    if (const auto *system = dynamic_cast<const std::system_error *>(&error))
        return QString::fromStdString(system->code().message());
    return QString::fromStdString(error.what());
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
