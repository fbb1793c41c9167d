#include "transfer/record_stream.h"

#include "platform/json_writer.h"
#include "transfer/detail/record_decoder.h"
#include "transfer/record_codec.h"

#include <fmt/format.h>

namespace tasket::transfer {
namespace {

using objectstore::FetchRequest;
using objectstore::ObjectPtr;
using objectstore::Predicate;
using platform::Errc;
using platform::Result;

// What to export of each entity, in an order where lists come before what
// they hold (an import does not need it, but a reader does).
struct Selection {
    std::string_view entity;
    // For one list: the predicate narrowing the entity to the list's objects,
    // the list standing for each %@; kAll for the records its tasks name
    // (tags, priorities, statuses, attributes and values); "" for none.
    std::string_view ofList;
};
constexpr std::string_view kAll = "*";
constexpr std::array kSelections{
    Selection{"TK_Folder", ""},
    Selection{"TK_Attribute", kAll},
    Selection{"TK_AttributeValue", kAll},
    Selection{"TK_Category", ""}, // the list itself
    Selection{"TK_Tag", kAll},
    Selection{"TK_Priority", kAll},
    Selection{"TK_Status", kAll},
    Selection{"TK_SmartCategory", ""},
    Selection{"TK_BoardSection", "category == %@"},
    Selection{"TK_Task", "category == %@"},
    Selection{"TK_Subtask", "task.category == %@"},
    Selection{"TK_Attachment", "task.category == %@ OR subtask.task.category == %@"},
};

Result<std::vector<std::vector<objectstore::ObjectID>>>
selectObjects(objectstore::ObjectContext& context, const ExportOptions& options) {
    std::vector<std::vector<objectstore::ObjectID>> selected;
    for (const auto& selection : kSelections) {
        FetchRequest request{std::string(selection.entity)};
        // By identifier, so that the same objects always give the same file.
        const auto* entity = context.model().entity(selection.entity);
        for (const auto& attribute : entity->attributes)
            if (attribute.indexed)
                request.sortDescriptors.push_back({attribute.name});
        if (options.list && selection.ofList != kAll) {
            if (selection.ofList.empty()) {
                selected.emplace_back();
                if (selection.entity == "TK_Category")
                    selected.back().push_back(*options.list);
                continue;
            }
            const std::vector<objectstore::PredicateArgument> list(
                selection.ofList.find(" OR ") == std::string_view::npos ? 1 : 2, *options.list);
            auto predicate = Predicate::parse(selection.ofList, list);
            if (!predicate)
                return std::unexpected(predicate.error());
            request.predicate = std::move(*predicate);
        }
        auto ids = context.fetchObjectIDs(request);
        if (!ids)
            return std::unexpected(ids.error());
        selected.push_back(std::move(*ids));
    }
    return selected;
}

// How many identifiers of other objects `record` carries.
std::size_t referenceCount(const AnyRecord& any) {
    std::size_t count = 0;
    visitRecord(any, [&](const auto& record) {
        using R = std::decay_t<decltype(record)>;
        for (const auto& field : RecordTraits<R>::kFields)
            if (const auto* list = std::get_if<std::optional<Strings> R::*>(&field.member);
                list && record.**list)
                count += (record.**list)->size();
    });
    return count;
}

} // namespace

Result<std::string> recordLine(const AnyRecord& record) {
    platform::JsonWriter json(platform::JsonWriter::Form::record);
    json.beginObject().key("kind").string(kindOf(record)).key("record");
    visitRecord(record, [&](const auto& r) { writeRecord(json, r); });
    json.endObject();
    return json.finish();
}

Result<std::size_t> exportRecords(objectstore::ObjectContext& context, const ExportOptions& options,
                                  std::ostream& out, const Progress& progress) {
    auto selected = selectObjects(context, options);
    if (!selected)
        return std::unexpected(selected.error());
    std::size_t total = 0;
    for (const auto& ids : *selected)
        total += ids.size();
    std::size_t done = 0;
    std::size_t written = 0;
    const std::size_t batch = std::max<std::size_t>(1, options.batchSize);
    for (std::size_t kind = 0; kind < selected->size(); ++kind) {
        const auto& ids = (*selected)[kind];
        // The objects of a list (tasks and what they hold) name few others
        // each, which are loaded with the batch; the rest name whole lists
        // of tasks, read an object at a time below.
        const std::vector<std::string> prefetched =
            kSelections[kind].ofList.empty() || kSelections[kind].ofList == kAll
                ? std::vector<std::string>{}
                : referencedRelationships(kSelections[kind].entity);
        for (std::size_t at = 0; at < ids.size(); at += batch) {
            const std::size_t end = std::min(ids.size(), at + batch);
            auto load = [&](std::size_t from) -> Result<std::vector<ObjectPtr>> {
                std::vector<ObjectPtr> objects;
                for (std::size_t i = from; i < end; ++i)
                    objects.push_back(context.objectWithID(ids[i]));
                if (auto loaded = context.fireFaults(objects); !loaded)
                    return std::unexpected(loaded.error());
                if (auto loaded = context.prefetchRelationships(objects, prefetched); !loaded)
                    return std::unexpected(loaded.error());
                return objects;
            };
            auto objects = load(at);
            if (!objects)
                return std::unexpected(objects.error());
            for (std::size_t i = at; i < end; ++i) {
                const auto& object = (*objects)[i - at];
                // An object without an identifier cannot be named by a record.
                if (recordIdentifier(*object).empty())
                    continue;
                const AnyRecord record = recordFromObject(*object);
                auto line = recordLine(record);
                if (!line)
                    return std::unexpected(line.error());
                out << *line << '\n';
                ++written;
                // A list names thousands of tasks, each loaded to read its
                // identifier: forget them now, not at the end of the batch.
                if (referenceCount(record) > batch && i + 1 < end) {
                    context.reset();
                    objects = load(i + 1);
                    if (!objects)
                        return std::unexpected(objects.error());
                    objects->insert(objects->begin(), i + 1 - at, nullptr);
                }
            }
            if (!out)
                return platform::fail(Errc::ioError, "the records could not be written");
            objects->clear();
            context.reset();
            done += end - at;
            if (progress)
                progress(done, total);
        }
    }
    out.flush();
    if (!out)
        return platform::fail(Errc::ioError, "the records could not be written");
    return written;
}

// ---- Importing --------------------------------------------------------------------

Result<Importer> Importer::make(objectstore::ObjectContext& context) {
    auto applier = RecordApplier::make(context);
    if (!applier)
        return std::unexpected(applier.error());
    return Importer(context, std::move(*applier));
}

Result<void> Importer::add(const AnyRecord& record) {
    return m_applier.apply(record);
}

void Importer::abandon() {
    m_context->rollback();
}

Result<ImportReport> Importer::finish(bool dryRun) {
    ImportReport report;
    report.missing = m_applier.finish();
    report.counts = m_applier.counts();
    if (dryRun) {
        m_context->rollback();
        return report;
    }
    if (auto saved = m_context->save(); !saved) {
        m_context->rollback();
        return std::unexpected(saved.error());
    }
    return report;
}

namespace {

namespace dom = simdjson::dom;

Result<AnyRecord> decodeLine(std::string_view line) {
    dom::element document;
    if (auto error = detail::parseText(line).get(document))
        return platform::fail(Errc::parseError,
                              fmt::format("not valid JSON ({})", simdjson::error_message(error)));
    std::string_view kind;
    dom::object record;
    if (document.type() != dom::element_type::OBJECT ||
        document["kind"].get_string().get(kind) != simdjson::SUCCESS ||
        document["record"].get_object().get(record) != simdjson::SUCCESS)
        return platform::fail(Errc::parseError,
                              "not a record: an object with \"kind\" (a string) and \"record\" "
                              "(an object) was expected");
    return detail::decodeObjectOfKind(kind, record);
}

} // namespace

Result<ImportReport> importRecords(objectstore::ObjectContext& context, std::istream& in,
                                   bool dryRun) {
    auto importer = Importer::make(context);
    if (!importer)
        return std::unexpected(importer.error());
    std::string line;
    std::size_t number = 0;
    while (std::getline(in, line)) {
        ++number;
        if (line.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        auto record = decodeLine(line);
        Result<void> applied = record ? importer->add(*record) : std::unexpected(record.error());
        if (!applied) {
            importer->abandon();
            return platform::fail(applied.error().code,
                                  fmt::format("line {}: {}; nothing was "
                                              "imported",
                                              number, applied.error().message));
        }
    }
    if (in.bad()) {
        importer->abandon();
        return platform::fail(Errc::ioError, "the records could not be read; nothing was imported");
    }
    return importer->finish(dryRun);
}

} // namespace tasket::transfer
