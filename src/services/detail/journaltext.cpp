#include "services/detail/journaltext.h"

#include "platform/posix/percentencoding.h"

#include <algorithm>
#include <sstream>
#include <unordered_set>
#include <utility>

namespace quillorn::detail {

namespace {

constexpr std::string_view header = "quillorn-jobs 1";

template <class... Ts> struct Overloaded : Ts... {
    using Ts::operator()...;
};

std::string field(std::string_view key, const std::string &bytes)
{
    return std::string(key) + ' ' + percentEncoded(bytes) + '\n';
}

std::string multiRenameFields(const MultiRenameJob &rename)
{
    std::string text = field("kind", "multiRename") + field("folder", rename.folder.native());
    for (const auto &[from, to] : rename.names)
        text += field("from", from) + field("to", to);
    return text;
}

std::string itemFields(const char *kind, const std::vector<std::filesystem::path> &items)
{
    std::string text = field("kind", kind);
    for (const auto &item : items)
        text += field("item", item.native());
    return text;
}

std::string eraseFields(const EraseFromTrashJob &erase)
{
    return itemFields("eraseFromTrash", erase.items);
}

std::string restoreFields(const RestoreFromTrashJob &restore)
{
    return itemFields("restoreFromTrash", restore.items) + field("keepBoth", restore.keepBoth ? "1" : "0");
}

constexpr std::string_view syncStepKinds[] = {"copy", "replace", "trash"};

std::string syncFields(const SyncJob &sync)
{
    std::string text = field("kind", "sync") + field("left", sync.left.native()) +
                       field("right", sync.right.native()) + field("remember", sync.remember ? "1" : "0");
    for (const SyncStep &step : sync.steps)
        text += field("step", std::string(syncStepKinds[int(step.kind)])) +
                field("source", step.source.native()) + field("target", step.target.native()) +
                field("source-seal", step.sourceSeal) + field("target-seal", step.targetSeal) +
                field("size", std::to_string(step.bytes)) + field("key", step.key);
    for (const std::string &key : sync.pending)
        text += field("pending", key);
    return text;
}

std::string unpackFields(const ArchiveUnpackJob &unpack)
{
    std::string text = field("kind", "unpack") + field("archive", unpack.archive.native()) +
                       field("destination", unpack.destination.native()) +
                       field("allowLarge", unpack.allowLarge ? "1" : "0");
    for (const std::string &member : unpack.members)
        text += field("member", member);
    return text;
}

std::string packFields(const ArchivePackJob &pack)
{
    return itemFields("pack", pack.items) + field("destination", pack.destination.native()) +
           field("name", pack.name);
}

// The items of an undo one after another, each as its fields in a fixed order.
std::string undoFields(const UndoJob &undo)
{
    return std::visit(
        Overloaded{
            [](const UndoJob::Rename &rename) {
                std::string text = field("kind", "undoRename") + field("folder", rename.folder.native());
                for (const auto &name : rename.names)
                    text +=
                        field("before", name.before) + field("after", name.after) + field("seal", name.seal);
                return text;
            },
            [](const UndoJob::NewFolder &folder) {
                return field("kind", "undoNewFolder") + field("folder", folder.folder.native());
            },
            [](const UndoJob::Trash &trash) {
                std::string text = field("kind", "undoTrash");
                for (const auto &item : trash.items)
                    text +=
                        field("original", item.original.native()) + field("trashed", item.trashed.native());
                return text;
            },
            [](const UndoJob::Transfer &transfer) {
                std::string text = field("kind", "undoTransfer") + field("move", transfer.move ? "1" : "0");
                for (const auto &item : transfer.items)
                    text += field("source", item.source.native()) + field("target", item.target.native()) +
                            field("seal", item.seal) + field("tree", item.wholeTree ? "1" : "0");
                return text;
            },
        },
        undo.change);
}

std::string jobFields(const Job &job)
{
    return std::visit(Overloaded{
                          [](const TransferJob &transfer) {
                              std::string text = field("kind", "transfer") +
                                                 field("move", transfer.move ? "1" : "0") +
                                                 field("policy", std::string(rawValue(transfer.policy))) +
                                                 field("destination", transfer.destination.native());
                              for (const auto &source : transfer.sources)
                                  text += field("source", source.native());
                              return text;
                          },
                          [](const RenameJob &rename) {
                              return field("kind", "rename") + field("item", rename.item.native()) +
                                     field("name", rename.name);
                          },
                          [](const NewFolderJob &folder) {
                              return field("kind", "newFolder") + field("folder", folder.folder.native()) +
                                     field("name", folder.name);
                          },
                          [](const TrashJob &trash) {
                              std::string text = field("kind", "trash");
                              for (const auto &item : trash.items)
                                  text += field("item", item.native());
                              return text;
                          },
                          [](const ArchiveExtraction &extraction) {
                              return field("kind", "extraction") +
                                     field("archive", extraction.archive.native()) +
                                     field("member", extraction.member.toStdString()) +
                                     field("destination", extraction.destination.native());
                          },
                          [](const OpaqueJob &) { return std::string(); },
                          [](const MultiRenameJob &rename) { return multiRenameFields(rename); },
                          [](const UndoJob &undo) { return undoFields(undo); },
                          [](const RestoreFromTrashJob &restore) { return restoreFields(restore); },
                          [](const EraseFromTrashJob &erase) { return eraseFields(erase); },
                          [](const SyncJob &sync) { return syncFields(sync); },
                          [](const ArchiveUnpackJob &unpack) { return unpackFields(unpack); },
                          [](const ArchivePackJob &pack) { return packFields(pack); },
                      },
                      job);
}

// The fields of one job, in order, with their decoded values.
using Fields = std::vector<std::pair<std::string, std::string>>;

std::optional<std::string> only(const Fields &fields, std::string_view key)
{
    std::optional<std::string> found;
    for (const auto &[name, value] : fields) {
        if (name != key)
            continue;
        if (found)
            return std::nullopt;
        found = value;
    }
    return found;
}

std::vector<std::filesystem::path> all(const Fields &fields, std::string_view key)
{
    std::vector<std::filesystem::path> paths;
    for (const auto &[name, value] : fields)
        if (name == key)
            paths.emplace_back(value);
    return paths;
}

// The publications in the order they were recorded: "publishing" and its
// fields before the rename, "published" once it was done (alone in journals
// written before publications carried seals).
std::optional<std::vector<JobRunner::Publication>> publicationsOf(const Fields &fields)
{
    std::vector<JobRunner::Publication> publications;
    for (const auto &[name, value] : fields) {
        if (name == "publishing") {
            publications.push_back({{value, {}, {}, {}, {}}, false});
        } else if (name.starts_with("publishing-")) {
            if (publications.empty() || publications.back().confirmed)
                return std::nullopt;
            PublishIntent &intent = publications.back().intent;
            if (name == "publishing-target")
                intent.target = value;
            else if (name == "publishing-staging")
                intent.staging = value;
            else if (name == "publishing-source-seal")
                intent.sourceSeal = value;
            else if (name == "publishing-copy-seal")
                intent.copySeal = value;
            else
                return std::nullopt;
        } else if (name == "published") {
            addPublication(publications, {{value, {}, {}, {}, {}}, true});
        }
    }
    return publications;
}

// The values of the keys, item by item; nothing unless every item has them all.
std::optional<std::vector<std::vector<std::string>>> itemsOf(const Fields &fields,
                                                             const std::vector<std::string_view> &keys)
{
    std::vector<std::vector<std::string>> items;
    for (const std::string_view key : keys) {
        const std::vector<std::filesystem::path> values = all(fields, key);
        if (key != keys.front() && values.size() != items.size())
            return std::nullopt;
        items.resize(values.size());
        for (std::size_t index = 0; index < values.size(); ++index)
            items[index].push_back(values[index].native());
    }
    if (items.empty())
        return std::nullopt;
    return items;
}

std::optional<UndoJob> undoOf(const std::string &kind, const Fields &fields)
{
    const std::optional<std::string> folder = only(fields, "folder");
    if (kind == "undoNewFolder" && folder)
        return UndoJob{UndoJob::NewFolder{*folder}};
    if (kind == "undoRename" && folder) {
        const auto items = itemsOf(fields, {"before", "after", "seal"});
        if (!items)
            return std::nullopt;
        UndoJob::Rename rename{*folder, {}};
        for (const auto &item : *items)
            rename.names.push_back({item[0], item[1], item[2]});
        return UndoJob{std::move(rename)};
    }
    if (kind == "undoTrash") {
        const auto items = itemsOf(fields, {"original", "trashed"});
        if (!items)
            return std::nullopt;
        UndoJob::Trash trash;
        for (const auto &item : *items)
            trash.items.push_back({item[0], item[1]});
        return UndoJob{std::move(trash)};
    }
    const std::optional<std::string> move = only(fields, "move");
    if (kind == "undoTransfer" && (move == "0" || move == "1")) {
        const auto items = itemsOf(fields, {"source", "target", "seal", "tree"});
        if (!items)
            return std::nullopt;
        UndoJob::Transfer transfer{move == "1", {}};
        for (const auto &item : *items)
            transfer.items.push_back({item[0], item[1], item[2], item[3] == "1"});
        return UndoJob{std::move(transfer)};
    }
    return std::nullopt;
}

std::optional<Job> syncOf(const Fields &fields)
{
    const auto left = only(fields, "left"), right = only(fields, "right"),
               remember = only(fields, "remember");
    if (!left || !right || (remember != "0" && remember != "1"))
        return std::nullopt;
    SyncJob sync{*left, *right, remember == "1", {}, {}};
    for (const auto &key : all(fields, "pending"))
        sync.pending.push_back(key.native());
    if (all(fields, "step").empty())
        return sync;
    const auto items =
        itemsOf(fields, {"step", "source", "target", "source-seal", "target-seal", "size", "key"});
    if (!items)
        return std::nullopt;
    for (const auto &item : *items) {
        const auto kind = std::find(std::begin(syncStepKinds), std::end(syncStepKinds), item[0]);
        std::int64_t bytes = 0;
        if (kind == std::end(syncStepKinds) || item[5].empty() || item[5].size() > 18 ||
            item[5].find_first_not_of("0123456789") != std::string::npos)
            return std::nullopt;
        bytes = std::stoll(item[5]);
        sync.steps.push_back({SyncStep::Kind(kind - std::begin(syncStepKinds)), item[1], item[2], item[3],
                              item[4], bytes, item[6]});
    }
    return sync;
}

std::optional<Job> jobOf(const Fields &fields)
{
    const std::optional<std::string> kind = only(fields, "kind");
    if (kind && kind->starts_with("undo")) {
        if (std::optional<UndoJob> undo = undoOf(*kind, fields))
            return Job(std::move(*undo));
        return std::nullopt;
    }
    if (kind == "transfer") {
        const auto move = only(fields, "move"), policy = only(fields, "policy"),
                   destination = only(fields, "destination");
        const auto chosen = policy ? conflictPolicyFromRawValue(*policy) : std::nullopt;
        TransferJob job{all(fields, "source"), destination.value_or(""), move == "1",
                        chosen.value_or(ConflictPolicy::stop)};
        if (!move || (*move != "0" && *move != "1") || !chosen || !destination || job.sources.empty())
            return std::nullopt;
        return job;
    }
    if (kind == "rename" || kind == "newFolder") {
        const auto path = only(fields, kind == "rename" ? "item" : "folder"), name = only(fields, "name");
        if (!path || !name)
            return std::nullopt;
        if (kind == "rename")
            return RenameJob{*path, *name};
        return NewFolderJob{*path, *name};
    }
    if (kind == "extraction") {
        const auto archive = only(fields, "archive"), member = only(fields, "member"),
                   destination = only(fields, "destination");
        if (!archive || !member || !destination)
            return std::nullopt;
        return ArchiveExtraction{*archive, QString::fromStdString(*member), *destination, nullptr};
    }
    if (kind == "unpack") {
        const auto archive = only(fields, "archive"), destination = only(fields, "destination"),
                   allowLarge = only(fields, "allowLarge");
        if (!archive || !destination || (allowLarge != "0" && allowLarge != "1"))
            return std::nullopt;
        std::vector<std::string> members;
        for (const auto &member : all(fields, "member"))
            members.push_back(member.native());
        return ArchiveUnpackJob{*archive, *destination, std::move(members), allowLarge == "1"};
    }
    if (kind == "pack") {
        const auto destination = only(fields, "destination"), name = only(fields, "name");
        if (!destination || !name || all(fields, "item").empty())
            return std::nullopt;
        return ArchivePackJob{all(fields, "item"), *destination, *name};
    }
    if (kind == "multiRename") {
        const auto folder = only(fields, "folder");
        MultiRenameJob job{folder.value_or(""), {}};
        // "from" and "to" alternate, one pair per item, in the job's order.
        std::optional<std::string> from;
        for (const auto &[name, value] : fields) {
            if (name == "from" && !from)
                from = value;
            else if (name == "to" && from)
                job.names.emplace_back(*std::exchange(from, std::nullopt), value);
            else if (name == "from" || name == "to")
                return std::nullopt;
        }
        if (!folder || from || job.names.empty())
            return std::nullopt;
        return job;
    }
    if (kind == "trash" && !all(fields, "item").empty())
        return TrashJob{all(fields, "item")};
    if (kind == "restoreFromTrash" && !all(fields, "item").empty()) {
        const auto keepBoth = only(fields, "keepBoth");
        if (keepBoth != "0" && keepBoth != "1")
            return std::nullopt;
        return RestoreFromTrashJob{all(fields, "item"), keepBoth == "1"};
    }
    if (kind == "eraseFromTrash" && !all(fields, "item").empty())
        return EraseFromTrashJob{all(fields, "item")};
    if (kind == "sync")
        return syncOf(fields);
    return std::nullopt;
}

} // namespace

void addPublication(std::vector<JobRunner::Publication> &publications, JobRunner::Publication publication)
{
    if (!publication.intent.target.empty()) {
        if (std::none_of(publications.begin(), publications.end(), [&](const JobRunner::Publication &known) {
                return known.intent == publication.intent;
            }))
            publications.push_back(std::move(publication));
        return;
    }
    for (auto it = publications.rbegin(); it != publications.rend(); ++it)
        if (it->intent.source == publication.intent.source && !it->intent.target.empty()) {
            if (it->confirmed)
                return; // a log line that the journal took in before a crash
            it->confirmed = true;
            return;
        }
    if (std::find(publications.begin(), publications.end(), publication) == publications.end())
        publications.push_back(std::move(publication));
}

void addPublications(std::vector<JobRunner::Publication> &publications,
                     const std::vector<JobRunner::Publication> &added)
{
    const auto key = [](const PublishIntent &intent) {
        return intent.source.native() + '\0' + intent.staging.native() + '\0' + intent.target.native() +
               '\0' + intent.sourceSeal + '\0' + intent.copySeal;
    };
    std::unordered_set<std::string> known;
    if (added.size() > 1)
        for (const JobRunner::Publication &publication : publications)
            if (!publication.intent.target.empty())
                known.insert(key(publication.intent));
    for (const JobRunner::Publication &publication : added) {
        if (added.size() == 1 || publication.intent.target.empty())
            addPublication(publications, publication);
        else if (known.insert(key(publication.intent)).second)
            publications.push_back(publication);
    }
}

std::string publicationLine(const QUuid &id, const JobRunner::Publication &publication)
{
    const PublishIntent &intent = publication.intent;
    const std::string job = id.toString(QUuid::WithoutBraces).toStdString();
    if (publication.confirmed)
        return "published " + job + ' ' + percentEncoded(intent.source.native()) + '\n';
    return "publishing " + job + ' ' + percentEncoded(intent.source.native()) + ' ' +
           percentEncoded(intent.target.native()) + ' ' + percentEncoded(intent.staging.native()) + ' ' +
           percentEncoded(intent.sourceSeal) + ' ' + percentEncoded(intent.copySeal) + '\n';
}

void applyPublicationLog(const std::string &text, std::vector<JournalEntry> &entries)
{
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        std::vector<std::string> fields;
        const std::string line = text.substr(start, end - start);
        for (std::size_t at = 0;;) {
            const std::size_t space = line.find(' ', at);
            fields.push_back(line.substr(at, space == std::string::npos ? std::string::npos : space - at));
            if (space == std::string::npos)
                break;
            at = space + 1;
        }
        const bool confirmation = fields.size() == 3 && fields[0] == "published";
        if (!confirmation && !(fields.size() == 7 && fields[0] == "publishing"))
            continue;
        std::vector<std::string> values;
        for (std::size_t index = 2; index < fields.size(); ++index)
            if (std::optional<std::string> value = percentDecoded(fields[index]))
                values.push_back(std::move(*value));
        if (values.size() != fields.size() - 2)
            continue;
        const QUuid id = QUuid::fromString(QString::fromStdString(fields[1]));
        JobRunner::Publication publication{{values[0], {}, {}, {}, {}}, confirmation};
        if (!confirmation)
            publication.intent = {values[0], values[2], values[1], values[3], values[4]};
        for (JournalEntry &entry : entries)
            if (!id.isNull() && entry.id == id)
                addPublication(entry.published, publication);
    }
}

std::string journalText(const std::vector<JournalEntry> &entries)
{
    std::string text = std::string(header) + '\n';
    for (const JournalEntry &entry : entries) {
        text += "job " + entry.id.toString(QUuid::WithoutBraces).toStdString() + '\n';
        text += field("title", entry.title.toStdString()) + jobFields(entry.job);
        for (const JobRunner::Publication &publication : entry.published) {
            const PublishIntent &intent = publication.intent;
            if (!intent.target.empty())
                text += field("publishing", intent.source.native()) +
                        field("publishing-target", intent.target.native()) +
                        field("publishing-staging", intent.staging.native()) +
                        field("publishing-source-seal", intent.sourceSeal) +
                        field("publishing-copy-seal", intent.copySeal);
            if (publication.confirmed)
                text += field("published", intent.source.native());
        }
    }
    return text + "end\n";
}

std::optional<std::vector<JournalEntry>> parseJournal(const std::string &text)
{
    std::istringstream lines(text);
    std::string line;
    if (!std::getline(lines, line) || line != header)
        return std::nullopt;
    std::vector<JournalEntry> entries;
    std::optional<JournalEntry> current;
    Fields fields;
    const auto close = [&] {
        if (!current)
            return true;
        const std::optional<Job> job = jobOf(fields);
        const std::optional<std::string> title = only(fields, "title");
        std::optional<std::vector<JobRunner::Publication>> published = publicationsOf(fields);
        if (!job || !title || !published)
            return false;
        current->job = *job;
        current->title = QString::fromStdString(*title);
        current->published = std::move(*published);
        entries.push_back(std::move(*current));
        current.reset();
        fields.clear();
        return true;
    };
    while (std::getline(lines, line)) {
        if (line == "end")
            return close() && lines.peek() == std::char_traits<char>::eof() ? std::optional(entries)
                                                                            : std::nullopt;
        const std::size_t space = line.find(' ');
        if (space == std::string::npos)
            return std::nullopt;
        const std::string key = line.substr(0, space);
        const std::optional<std::string> value = percentDecoded(line.substr(space + 1));
        if (!value)
            return std::nullopt;
        if (key == "job") {
            const QUuid id = QUuid::fromString(QString::fromStdString(*value));
            if (!close() || id.isNull())
                return std::nullopt;
            current = JournalEntry{id, {}, {}, {}};
        } else if (!current) {
            return std::nullopt;
        } else {
            fields.emplace_back(key, *value);
        }
    }
    return std::nullopt; // no "end": cut off
}

} // namespace quillorn::detail
