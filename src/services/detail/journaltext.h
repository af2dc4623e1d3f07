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

// Adds one record to a job's publications: an intent (with a target) unless the
// same one is there already, or a confirmation, which confirms the latest
// unconfirmed intent for its source or else stands alone.
void addPublication(std::vector<JobRunner::Publication> &publications, JobRunner::Publication publication);
// The same for many records, in order; known intents are found by a hash, so
// that a job announcing thousands at once does not compare each with all.
void addPublications(std::vector<JobRunner::Publication> &publications,
                     const std::vector<JobRunner::Publication> &added);

// One line of the publications log that a journal appends to between two
// rewrites: "publishing ID SOURCE TARGET STAGING SOURCESEAL COPYSEAL" for an
// intent, "published ID SOURCE" for a confirmation, fields percent-encoded.
std::string publicationLine(const QUuid &id, const JobRunner::Publication &publication);
// Adds the records of a publications log to the entries they belong to. A last
// line without its line feed was cut off by a crash and is ignored, as is any
// line that does not parse.
void applyPublicationLog(const std::string &text, std::vector<JournalEntry> &entries);

// The journal's text: a header line, then per job a "job ID KIND TITLE" line
// and one line per field, and a closing "end" line, so that a cut-off text
// is told from a whole one. Paths, names and the title are percent-encoded
// (every byte but printable ASCII other than "%"), so any byte string
// round-trips and no field holds a space or a line break.
std::string journalText(const std::vector<JournalEntry> &entries);
// Nothing when the text is not a whole journal of this format.
std::optional<std::vector<JournalEntry>> parseJournal(const std::string &text);

} // namespace quillorn::detail
