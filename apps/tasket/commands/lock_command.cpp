#include "tasket/commands/lock_command.h"

#include "platform/json_writer.h"
#include "tasket/lock_gate.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace tasket::apps {

const CommandInfo& LockCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "lock",
        .usage = "tasket lock enable|disable|status [--json]",
        .summary = "Switch the app lock on or off, or show whether it is on",
        .help = "While the app lock is on, every command that shows what the store holds\n"
                "asks for your authentication on the terminal first (your own login\n"
                "password, or whatever your PAM service \"tasket\" asks for). enable and\n"
                "disable ask too; enable is refused when authentication cannot be used.\n"
                "status prints \"on\" or \"off\" and whether authentication can be used;\n"
                "with --json: {\"isEnabled\", \"canAuthenticate\", \"reason\"}.",
        .showsStoredData = false,
    };
    return kInfo;
}

void LockCommand::addOptions(CLI::App& command) {
    command.add_option("action", m_action, "enable, disable or status")
        ->required()
        ->check(CLI::IsMember({"enable", "disable", "status"}));
}

platform::Result<void> LockCommand::run(CommandContext& context) {
    const auto lock = services::AuthenticationManager::openUserLock();
    if (m_action != "status") {
        const bool enable = m_action == "enable";
        if (auto switched = switchOnTerminal(*lock, enable); !switched)
            return switched;
        context.out << fmt::format("The app lock is {}.\n", enable ? "on" : "off");
        return {};
    }
    const auto can = lock->canAuthenticate();
    const bool enabled = lock->isEnabled().value();
    if (context.json) {
        platform::JsonWriter json;
        json.beginObject()
            .key("isEnabled")
            .boolean(enabled)
            .key("canAuthenticate")
            .boolean(can.has_value())
            .key("reason");
        if (can)
            json.null();
        else
            json.string(can.error().message);
        context.out << json.endObject().finish().value();
        return {};
    }
    context.out << (enabled ? "on\n" : "off\n");
    if (!can)
        context.out << fmt::format("{}\n", can.error().message);
    return {};
}

} // namespace tasket::apps
