#include "operations/userfacing.h"

#include "operations/commandererror.h"
#include "platform/posix/posixerror.h"

#include <system_error>

namespace quillorn {

std::string userFacingText(const std::exception &error)
{
    if (const auto *commander = dynamic_cast<const CommanderError *>(&error))
        return commander->errorDescription();
    if (const auto *posix = dynamic_cast<const PosixError *>(&error); posix && !posix->path().empty())
        return posix->path().string() + ": " + posix->code().message();
    if (const auto *system = dynamic_cast<const std::system_error *>(&error))
        return system->code().message();
    return error.what();
}

} // namespace quillorn
