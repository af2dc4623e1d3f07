#include "services/archivetools.h"

#include "operations/commandererror.h"
#include "operations/operationcontrol.h"
#include "platform/posix/childprocess.h"

#include <QSet>
#include <QStringDecoder>
#include <memory>

namespace quillorn {

namespace {

const std::string tooLarge = "Archive output exceeds the supported size limit.";
const std::string unreadable = "Cannot read this ZIP. It may be encrypted, damaged, or unsupported.";

} // namespace

QByteArray ArchiveTools::command(const std::string &executable, const std::vector<std::string> &arguments,
                                 std::int64_t limit, const OperationControl &control)
{
    // Whatever way this ends, the child's destructor closes the pipe, kills a
    // child that still runs and reaps it.
    ChildProcess child(executable, arguments);
    QByteArray output;
    control.check();
    const std::unique_ptr<char[]> chunk(new char[readChunk]);
    for (;;) {
        const std::size_t count = child.read(chunk.get(), readChunk);
        if (count == 0)
            break;
        if (std::int64_t(output.size()) + std::int64_t(count) > limit)
            throw CommanderError(tooLarge);
        output.append(chunk.get(), qsizetype(count));
        control.check();
    }
    child.closeOutput();
    if (child.wait() != 0)
        throw CommanderError(unreadable);
    return output;
}

QByteArray ArchiveTools::command(const std::string &executable, const std::vector<std::string> &arguments,
                                 std::int64_t limit)
{
    return command(executable, arguments, limit, OperationControl());
}

std::vector<ZipEntry> ArchiveTools::list(const Path &archive)
{
    return entries(command(unzip, {"-Z1", archive.string()}, listingLimit));
}

std::vector<ZipEntry> ArchiveTools::entries(const QByteArray &listing)
{
    // A leading byte order mark is part of the name as listed.
    QStringDecoder decoder(QStringDecoder::Utf8,
                           QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom);
    const QString text = decoder.decode(listing);
    if (decoder.hasError())
        throw CommanderError("ZIP names must use UTF-8.");

    std::vector<ZipEntry> result;
    QSet<QString> seen;
    seen.reserve(listing.count('\n') + 1);
    const auto add = [&](qsizetype from, qsizetype to) {
        if (to == from)
            return;
        ZipEntry entry{text.mid(from, to - from)};
        // Canonical equivalence: a precomposed and a decomposed accent are one
        // name. ASCII is its own normal form, and most names are ASCII.
        seen.insert(QtPrivate::isAscii(QStringView(entry.name))
                        ? entry.name
                        : entry.name.normalized(QString::NormalizationForm_C));
        result.push_back(std::move(entry));
    };
    qsizetype start = 0;
    for (qsizetype at = text.indexOf(QLatin1Char('\n')); at >= 0;
         at = text.indexOf(QLatin1Char('\n'), at + 1)) {
        // A CR LF pair is one user-perceived character, not a line feed.
        if (at > 0 && text.at(at - 1) == QLatin1Char('\r'))
            continue;
        add(start, at);
        start = at + 1;
    }
    add(start, text.size());
    if (qsizetype(result.size()) != seen.size())
        throw CommanderError("ZIP contains duplicate names and cannot be browsed safely.");
    return result;
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
