#include "platform/desktop/timeleft.h"

#include <cmath>
#include <cstdint>

namespace quillorn {

QString formattedTimeLeft(double seconds)
{
    const auto whole = std::int64_t(std::max(1.0, std::ceil(std::min(seconds, 1e9))));
    QString amount;
    if (whole < 60) {
        amount = QStringLiteral("%1 sec").arg(whole);
    } else if (whole < 3600 - 30) {
        amount = QStringLiteral("%1 min").arg(std::max<std::int64_t>(1, (whole + 30) / 60));
    } else {
        const std::int64_t minutes = (whole + 30) / 60;
        const std::int64_t hours = minutes / 60, rest = minutes % 60;
        amount = rest == 0 ? QStringLiteral("%1 hr").arg(hours)
                           : QStringLiteral("%1 hr, %2 min").arg(hours).arg(rest);
    }
    return QStringLiteral("About ") + amount + QStringLiteral(" left");
}

} // namespace quillorn
