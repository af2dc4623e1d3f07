#pragma once

#include "services/queuejob.h"

#include <QString>
#include <QUuid>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quillorn::detail {

// One unfinished job as the journal keeps it: what it is, which of its sources
// it was about to publish or published under their final names, and the seals
// that tell those items again. Never any file contents.
struct JournalEntry {
    QUuid id;
    QString title;
    Job job;
    std::vector<JobRunner::Publication> published;
};

// The journal's text: a header line, then per job a "job ID KIND TITLE" line
// and one line per field, and a closing "end" line, so that a cut-off text
// is told from a whole one. Paths, names and the title are percent-encoded
// (every byte but printable ASCII other than "%"), so any byte string
// round-trips and no field holds a space or a line break.
std::string journalText(const std::vector<JournalEntry> &entries);
// Nothing when the text is not a whole journal of this format.
std::optional<std::vector<JournalEntry>> parseJournal(const std::string &text);

} // namespace quillorn::detail
