#include "tasket/commands/import_command.h"

#include "platform/json_writer.h"
#include "tasket/reminder_scheduling.h"
#include "tasket/store_view.h"
#include "transfer/record_stream.h"
#include "transfer/taskwarrior_import.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <fstream>
#include <sstream>

namespace tasket::apps {
namespace {

platform::Result<transfer::ImportReport> importTaskwarrior(objectstore::ObjectContext& context,
                                                           std::istream& in, bool dryRun,
                                                           std::size_t& deleted) {
    std::stringstream text;
    text << in.rdbuf();
    auto importer = transfer::Importer::make(context);
    if (!importer)
        return std::unexpected(importer.error());
    auto added = transfer::addTaskwarriorExport(*importer, text.view());
    if (!added) {
        importer->abandon();
        return platform::fail(added.error().code, added.error().message + "; nothing was imported");
    }
    deleted = *added;
    return importer->finish(dryRun);
}

} // namespace

const CommandInfo& ImportCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "import",
        .usage = "tasket import FILE [--dry-run] | tasket import --from-taskwarrior FILE",
        .summary = "Read transfer records (or a Taskwarrior export) into the store",
        .help = "FILE holds lines as \"tasket export\" writes them. Each record updates the\n"
                "object with its identifier or creates one; references name objects by\n"
                "identifier, and one that names nothing is left out and reported. Any bad\n"
                "line stops the import before anything is saved. With --from-taskwarrior,\n"
                "FILE is what \"task export\" prints: projects become lists, tags tags, due\n"
                "and scheduled the due and start dates, annotations the notes, and each\n"
                "uuid the task's identifier. --dry-run reports what would change.",
    };
    return kInfo;
}

void ImportCommand::addOptions(CLI::App& command) {
    command.add_option("FILE", m_file, "The file to read")->required();
    command.add_flag("--dry-run", m_dryRun, "Report what would change, and change nothing");
    command.add_flag("--from-taskwarrior", m_fromTaskwarrior,
                     "FILE is Taskwarrior's \"task export\" JSON");
}

platform::Result<void> ImportCommand::run(CommandContext& context) {
    std::ifstream in(m_file, std::ios::binary);
    if (!in)
        return platform::fail(platform::Errc::notFound, fmt::format("cannot read {}", m_file));
    auto manager = openStoreForOneCommand();
    auto background = manager->newBackgroundContext();
    std::size_t deleted = 0;
    platform::Result<transfer::ImportReport> report =
        platform::fail(platform::Errc::cancelled, "not run");
    background->performAndWait([&] {
        report = m_fromTaskwarrior ? importTaskwarrior(*background, in, m_dryRun, deleted)
                                   : transfer::importRecords(*background, in, m_dryRun);
    });
    if (!report)
        return std::unexpected(report.error());
    if (!m_dryRun)
        refreshAllReminders(*background, context.err);

    platform::JsonWriter json;
    json.beginObject().key("dryRun").boolean(m_dryRun).key("kinds").beginArray();
    std::size_t created = 0;
    std::size_t updated = 0;
    for (std::size_t i = 0; i < transfer::kRecordKinds.size(); ++i) {
        const auto made = report->counts.created[i];
        const auto changed = report->counts.updated[i];
        created += made;
        updated += changed;
        if (made + changed == 0)
            continue;
        json.beginObject()
            .key("kind")
            .string(transfer::kRecordKinds[i].name)
            .key("created")
            .integer(static_cast<std::int64_t>(made))
            .key("updated")
            .integer(static_cast<std::int64_t>(changed))
            .endObject();
        if (!context.json)
            context.out << fmt::format("{}\t{} {}, {} {}\n", transfer::kRecordKinds[i].name,
                                       m_dryRun ? "would create" : "created", made,
                                       m_dryRun ? "would update" : "updated", changed);
    }
    json.endArray().key("missing").beginArray();
    for (const auto& line : report->missing) {
        json.string(line);
        context.err << "import: " << line << '\n';
    }
    json.endArray().endObject();
    if (context.json)
        context.out << json.finish().value();
    else
        context.out << fmt::format(
            "{} {} objects, {} {}{}\n", m_dryRun ? "would create" : "created", created,
            m_dryRun ? "would update" : "updated", updated,
            deleted ? fmt::format("; {} deleted tasks left out", deleted) : "");
    return {};
}

} // namespace tasket::apps
