#include "platform/desktop/defaultapplication.h"

#include "platform/desktop/fileurl.h"

#include <QDesktopServices>

namespace quillorn {

void openWithDefaultApplication(const std::filesystem::path &file)
{
    QDesktopServices::openUrl(fileUrl(file));
}

} // namespace quillorn
