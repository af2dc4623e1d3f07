#include "services/archiveextraction.h"

#include "operations/commandererror.h"
#include "operations/fileoperations.h"
#include "operations/operationcontrol.h"
#include "platform/posix/filecontents.h"
#include "platform/posix/posixerror.h"
#include "services/archivecatalog.h"
#include "services/archivetools.h"
#include "services/detail/journaledstaging.h"

#include <cerrno>

namespace quillorn {

QString ArchiveExtraction::fileName() const
{
    return member.section(QLatin1Char('/'), -1);
}

QString ArchiveExtraction::title() const
{
    return QStringLiteral("Extract ") + fileName();
}

void ArchiveExtraction::operator()(OperationControl &control) const
{
    control.check();
    const std::string name = fileName().toStdString();
    const Path target = FileOperations::child(name, destination);
    // Run again after a crash the bytes are read anew, from whichever reader the archive needs.
    const QByteArray data = bytes ? *bytes
                            : ArchiveCatalog::kind(archive) == ArchiveCatalog::Kind::other
                                ? ArchiveCatalog::member(member.toStdString(), archive)
                                : ArchiveTools::member(member, archive);
    control.check();
    try {
        createFile(target, std::string_view(data.constData(), std::size_t(data.size())),
                   detail::journaledStaging());
    } catch (const PosixError &error) {
        // The name was free when checked and was taken before the file could be published.
        if (error.code().value() == EEXIST)
            throw CommanderError("An item named \u2018" + name + "\u2019 already exists.");
        throw;
    }
}

} // namespace quillorn
