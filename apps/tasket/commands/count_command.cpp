#include "tasket/commands/count_command.h"

#include "common/task_report.h"
#include "platform/clock.h"
#include "tasket/store_view.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace tasket::apps {

const CommandInfo& CountCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "count",
        .usage = "tasket count [the selectors of \"tasket tasks\"] [--json]",
        .summary = "Print how many tasks the selectors choose",
        .help = "Takes the same selectors as \"tasket tasks\" and prints the number of tasks\n"
                "they choose; with --json, {\"count\": N}.",
    };
    return kInfo;
}

void CountCommand::addOptions(CLI::App& command) {
    m_selection.addOptions(command);
}

platform::Result<void> CountCommand::run(CommandContext& context) {
    auto manager = openStoreForOneCommand();
    auto& viewContext = *manager->viewContext();
    auto request =
        m_selection.request(viewContext, {platform::Clock::shared().now(), localCalendar()});
    if (!request)
        return std::unexpected(request.error());
    auto count = viewContext.count(*request);
    if (!count)
        return std::unexpected(count.error());
    context.out << (context.json ? fmt::format("{{\n  \"count\": {}\n}}\n", *count)
                                 : fmt::format("{}\n", *count));
    return {};
}

} // namespace tasket::apps
