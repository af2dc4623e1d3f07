#pragma once

#include <QString>
#include <cstdint>

namespace quillorn {

// Byte amounts as every view shows them: decimal (SI) units with the user's
// locale, for example "12.3 MB".
QString formattedByteCount(std::int64_t bytes);

} // namespace quillorn
