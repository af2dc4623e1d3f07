#include "platform/desktop/bytecount.h"

#include <QLocale>

namespace quillorn {

QString formattedByteCount(std::int64_t bytes)
{
    return QLocale().formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat);
}

} // namespace quillorn
