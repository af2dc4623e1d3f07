#include "operations/appdiagnostics.h"

#include "operations/commandererror.h"
#include "operations/detail/logtext.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/privatefolder.h"
#include "platform/posix/userfolders.h"

#include <cxxabi.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <system_error>
#include <typeinfo>

namespace fs = std::filesystem;

namespace quillorn {

namespace {

std::string timestamp()
{
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    ::gmtime_r(&now, &utc);
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return std::string(text, length);
}

std::string typeName(const std::exception &error)
{
    const char *mangled = typeid(error).name();
    int status = 0;
    std::unique_ptr<char, void (*)(void *)> demangled(abi::__cxa_demangle(mangled, nullptr, nullptr, &status),
                                                      std::free);
    std::string name = status == 0 && demangled ? demangled.get() : mangled;
    // Program types carry the program's name as their domain, like Quillorn.CommanderError.
    if (name.rfind("quillorn::", 0) == 0)
        name = "Quillorn." + name.substr(10);
    return name;
}

} // namespace

AppDiagnostics &AppDiagnostics::shared()
{
    // Never destroyed: a worker thread may still log while the process exits.
    static AppDiagnostics *const instance = new AppDiagnostics(dataHome() / "Quillorn" / "Logs");
    return *instance;
}

AppDiagnostics::AppDiagnostics(fs::path folder) : m_fileURL(folder / "Quillorn.log")
{
    try {
        createPrivateFolders(folder); // the log names every item the user copies or trashes
    } catch (const std::system_error &) {
        // Later writes simply fail.
    }
}

void AppDiagnostics::record(const std::string &message) noexcept
{
    try {
        std::lock_guard guard(m_lock);
        rotateIfNeeded();
        append(detail::validUtf8(timestamp() + " " + message + "\n"));
    } catch (...) {
        // A line that cannot even be built is lost like one that cannot be written.
    }
}

void AppDiagnostics::rotateIfNeeded() noexcept
{
    struct stat attributes {};
    if (::lstat(m_fileURL.c_str(), &attributes) != 0 ||
        attributes.st_size <= static_cast<off_t>(rotationSize))
        return;
    const fs::path previous = m_fileURL.parent_path() / "Quillorn.previous.log";
    // Neither call follows a link: one planted as the previous log is removed itself.
    ::unlink(previous.c_str());
    ::rename(m_fileURL.c_str(), previous.c_str());
}

void AppDiagnostics::append(const std::string &line) noexcept
{
    // O_APPEND makes the one write land at the end even if another process
    // appends too; the file is opened and closed for every line. A link planted
    // at the log's path is not followed (the line is lost instead of landing in
    // the link's target), and a pipe planted there does not block the writer.
    const int descriptor =
        ::open(m_fileURL.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644);
    if (descriptor < 0)
        return;
    struct stat attributes {};
    if (::fstat(descriptor, &attributes) != 0 || !S_ISREG(attributes.st_mode)) {
        ::close(descriptor);
        return;
    }
    std::size_t written = 0;
    while (written < line.size()) {
        const ssize_t count = ::write(descriptor, line.data() + written, line.size() - written);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        written += static_cast<std::size_t>(count);
    }
    ::close(descriptor);
}

AppDiagnostics::ErrorForm AppDiagnostics::form(const std::exception &error)
{
    ErrorForm result;
    if (const auto *system = dynamic_cast<const std::system_error *>(&error)) {
        const std::error_category &category = system->code().category();
        const bool posix = category == std::generic_category() || category == std::system_category();
        result.domain = posix ? "POSIX" : category.name();
        result.code = system->code().value();
        result.description = system->code().message();
        if (const auto *posixError = dynamic_cast<const PosixError *>(&error))
            result.path = posixError->path().string();
        else if (const auto *fileSystem = dynamic_cast<const fs::filesystem_error *>(&error))
            result.path = fileSystem->path1().string();
    } else if (const auto *commander = dynamic_cast<const CommanderError *>(&error)) {
        result.domain = "Quillorn.CommanderError";
        result.code = 1;
        result.description = commander->errorDescription();
    } else {
        result.domain = typeName(error);
        result.code = 1;
        result.description = error.what();
    }
    if (const auto *nested = dynamic_cast<const std::nested_exception *>(&error))
        result.underlying = nested->nested_ptr();
    return result;
}

std::string AppDiagnostics::describe(const std::exception &error)
{
    const ErrorForm parts = form(error);
    // A description may quote a name and the path is any bytes: both are escaped
    // so that the error stays within its one line and names the exact item.
    std::string text =
        parts.domain + " code=" + std::to_string(parts.code) + ": " + detail::logText(parts.description);
    if (!parts.path.empty())
        text += " path=" + detail::logText(parts.path);
    if (parts.underlying)
        text += " underlying={" + describe(parts.underlying) + "}";
    return text;
}

std::string AppDiagnostics::describe(const std::exception_ptr &error)
{
    if (!error)
        return "unknown code=0: No error.";
    try {
        std::rethrow_exception(error);
    } catch (const std::exception &caught) {
        return describe(caught);
    } catch (...) {
        return "unknown code=0: An unknown error occurred.";
    }
}

} // namespace quillorn
