#pragma once

#include <QString>

namespace quillorn {

// The time a job still needs, as the views say it, in the short duration
// style: "About 40 sec left", "About 2 min left", "About 1 hr, 5 min left".
// Rounded to the unit shown; never less than one second.
QString formattedTimeLeft(double seconds);

} // namespace quillorn
