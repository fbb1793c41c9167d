#include "tasket/commands/export_command.h"

#include "store/lookup.h"
#include "tasket/store_view.h"
#include "transfer/record_stream.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace tasket::apps {

const CommandInfo& ExportCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "export",
        .usage = "tasket export [--list NAME | --all] [--out FILE]",
        .summary = "Write the store's objects as transfer records, one per line",
        .help = "Writes one line per object: {\"kind\":\"TK_SharedTask\",\"record\":{...}}, the\n"
                "record in the form the application drags and copies. --all (the default)\n"
                "writes every object; --list writes one list (title or identifier) with its\n"
                "board sections, tasks, subtasks and attachments, and the tags,\n"
                "priorities, statuses, attributes and values its tasks can name.\n"
                "\"tasket import\" reads the file back. On a terminal, progress is shown\n"
                "on standard error.",
    };
    return kInfo;
}

void ExportCommand::addOptions(CLI::App& command) {
    auto* list =
        command.add_option("--list", m_list, "Only this list and what it holds")->type_name("NAME");
    command.add_flag("--all", m_all, "Every object of every kind (the default)")->excludes(list);
    command.add_option("--out", m_out, "Write to FILE instead of standard output")
        ->type_name("FILE");
}

platform::Result<void> ExportCommand::run(CommandContext& context) {
    transfer::ExportOptions options;
    std::shared_ptr<store::LocalDataManager> manager;
    if (!m_list.empty()) {
        auto view = openStoreView(store::collectionKinds({store::CollectionKind::categories}));
        if (!view)
            return std::unexpected(view.error());
        auto found = store::findList(
            store::offeredCategories(view->fetchManager->categories().value()), m_list);
        if (!found)
            return std::unexpected(found.error());
        options.list = (*found)->objectID();
        manager = view->localDataManager;
    } else {
        manager = openStoreForOneCommand();
    }
    // Written beside the target and renamed over it only when whole, so a
    // failed export leaves an earlier file with that name as it was.
    const std::string partial = m_out + ".part";
    std::ofstream file;
    if (!m_out.empty()) {
        file.open(partial, std::ios::binary | std::ios::trunc);
        if (!file)
            return platform::fail(platform::Errc::ioError, fmt::format("cannot write {}", partial));
    }
    std::ostream& out = m_out.empty() ? context.out : file;
    transfer::Progress progress;
    if (isatty(STDERR_FILENO))
        progress = [&](std::size_t done, std::size_t total) {
            context.err << fmt::format("\rexport: {} of {} objects", done, total)
                        << (done == total ? "\n" : "") << std::flush;
        };
    auto background = manager->newBackgroundContext();
    platform::Result<std::size_t> written = 0;
    background->performAndWait(
        [&] { written = transfer::exportRecords(*background, options, out, progress); });
    if (!m_out.empty()) {
        file.close();
        std::error_code ec;
        if (!written || !file)
            std::filesystem::remove(partial, ec);
        else
            std::filesystem::rename(partial, m_out, ec);
        if (written && (!file || ec))
            return platform::fail(
                platform::Errc::ioError,
                fmt::format("cannot write {}: {}", m_out, ec ? ec.message() : "the write failed"));
    }
    if (!written)
        return std::unexpected(written.error());
    if (!m_out.empty())
        context.err << fmt::format("{} records written to {}\n", *written, m_out);
    return {};
}

} // namespace tasket::apps
