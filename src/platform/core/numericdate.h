#pragma once

#include <QLocale>
#include <QString>

#include <chrono>

namespace quillorn {

// The locale's short date pattern made fully numeric: the year with all its
// digits, month and day with two, in the locale's order and separators.
QString numericDatePattern(const QLocale &locale = QLocale());

// A modification date as a numeric date without time, in local time. The
// earliest representable time (no date reported) shows as the first day of year 1.
QString formatNumericDate(std::chrono::system_clock::time_point time, const QLocale &locale = QLocale());

} // namespace quillorn
