#include "platform/core/numericdate.h"

#include <QDateTime>

namespace quillorn {

namespace {

// Length of the run of the same character starting at index.
qsizetype runLength(const QString &text, qsizetype index)
{
    qsizetype end = index;
    while (end < text.size() && text.at(end) == text.at(index))
        ++end;
    return end - index;
}

// Copies a quoted literal ('...' with '' for a quote) unchanged; returns the
// index after it.
qsizetype copyQuoted(const QString &text, qsizetype index, QString &out)
{
    out += text.at(index++);
    while (index < text.size()) {
        const QChar c = text.at(index++);
        out += c;
        if (c == u'\'') {
            if (index < text.size() && text.at(index) == u'\'')
                out += text.at(index++);
            else
                break;
        }
    }
    return index;
}

} // namespace

QString numericDatePattern(const QLocale &locale)
{
    // The C locale's short date names the month; its numeric form would read
    // "23 11 2026", so it gets the unambiguous ISO order instead.
    if (locale.language() == QLocale::C)
        return QStringLiteral("yyyy-MM-dd");
    const QString pattern = locale.dateFormat(QLocale::ShortFormat);
    QString out;
    qsizetype i = 0;
    while (i < pattern.size()) {
        const QChar c = pattern.at(i);
        if (c == u'\'') {
            i = copyQuoted(pattern, i, out);
            continue;
        }
        const qsizetype run = runLength(pattern, i);
        if (c == u'y')
            out += QStringLiteral("yyyy");
        else if (c == u'M')
            out += QStringLiteral("MM");
        else if (c == u'd' && run <= 2)
            out += QStringLiteral("dd");
        else if (c != u'd') // a weekday name has no place in a numeric date
            out += pattern.mid(i, run);
        i += run;
    }
    return out.trimmed();
}

QString formatNumericDate(std::chrono::system_clock::time_point time, const QLocale &locale)
{
    using namespace std::chrono;
    QDate date(1, 1, 1);
    if (time != system_clock::time_point::min()) {
        const auto ms = duration_cast<milliseconds>(time.time_since_epoch()).count();
        date = QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(ms)).date();
    }
    return locale.toString(date, numericDatePattern(locale));
}

} // namespace quillorn
