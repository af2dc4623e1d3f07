#include "services/archivetools.h"

#include "operations/commandererror.h"
#include "operations/operationcontrol.h"
#include "platform/posix/childprocess.h"
#include "services/detail/listingparser.h"

#include <memory>

namespace quillorn {

namespace {

const std::string tooLarge = "Archive output exceeds the supported size limit.";
const std::string unreadable = "Cannot read this ZIP. It may be encrypted, damaged, or unsupported.";

} // namespace

void ArchiveTools::stream(const std::string &executable, const std::vector<std::string> &arguments,
                          std::int64_t limit, const OperationControl &control,
                          const std::function<void(QByteArrayView)> &consume)
{
    // Whatever way this ends, the child's destructor closes the pipe, kills a
    // child that still runs and reaps it.
    ChildProcess child(executable, arguments);
    control.check();
    const std::unique_ptr<char[]> chunk(new char[readChunk]);
    std::int64_t total = 0;
    for (;;) {
        const std::size_t count = child.read(chunk.get(), readChunk);
        if (count == 0)
            break;
        total += std::int64_t(count);
        if (total > limit)
            throw CommanderError(tooLarge);
        consume(QByteArrayView(chunk.get(), qsizetype(count)));
        control.check();
    }
    child.closeOutput();
    if (child.wait() != 0)
        throw CommanderError(unreadable);
}

QByteArray ArchiveTools::command(const std::string &executable, const std::vector<std::string> &arguments,
                                 std::int64_t limit, const OperationControl &control)
{
    QByteArray output;
    stream(executable, arguments, limit, control, [&](QByteArrayView chunk) { output.append(chunk); });
    return output;
}

QByteArray ArchiveTools::command(const std::string &executable, const std::vector<std::string> &arguments,
                                 std::int64_t limit)
{
    return command(executable, arguments, limit, OperationControl());
}

std::vector<ZipEntry> ArchiveTools::list(const Path &archive)
{
    // The names are checked as they come, while unzip is still listing: on a
    // large archive that work would otherwise follow unzip's.
    detail::ListingParser parser;
    stream(unzip, {"-Z1", archive.string()}, listingLimit, OperationControl(),
           [&](QByteArrayView chunk) { parser.feed(chunk); });
    return parser.finish();
}

std::vector<ZipEntry> ArchiveTools::entries(const QByteArray &listing)
{
    detail::ListingParser parser;
    parser.feed(listing);
    return parser.finish();
}

bool ArchiveTools::refused(const QString &name)
{
    // In this order; unzip would read "-" as an option and * ? [ \ as a pattern.
    return name.endsWith(QLatin1Char('/')) || name.startsWith(QLatin1Char('-')) ||
           name.contains(QLatin1Char('\n')) || name.contains(QLatin1Char('\r')) ||
           name.contains(QLatin1Char('*')) || name.contains(QLatin1Char('?')) ||
           name.contains(QLatin1Char('[')) || name.contains(QLatin1Char('\\'));
}

QByteArray ArchiveTools::member(const QString &name, const Path &archive)
{
    if (refused(name))
        throw CommanderError("This member name cannot be streamed safely.");
    return command(unzip, {"-p", archive.string(), name.toUtf8().toStdString()}, memberLimit);
}

} // namespace quillorn
