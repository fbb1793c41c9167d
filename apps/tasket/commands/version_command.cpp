#include "tasket/commands/version_command.h"

#include "common/version.h"
#include "platform/json_writer.h"

#include <fmt/format.h>

namespace tasket::apps {

const CommandInfo& VersionCommand::info() const {
    static constexpr CommandInfo kInfo{
        .keyword = "version",
        .usage = "tasket version [--json]",
        .summary = "Print the program's version",
        .help = "Prints \"tasket\" and the version, for example \"tasket 1.2.0\".\n"
                "With --json: {\"name\": \"tasket\", \"version\": \"1.2.0\"}.",
        .showsStoredData = false,
    };
    return kInfo;
}

platform::Result<void> VersionCommand::run(CommandContext& context) {
    if (context.json) {
        context.out << platform::JsonWriter()
                           .beginObject()
                           .key("name")
                           .string("tasket")
                           .key("version")
                           .string(kTasketVersion)
                           .endObject()
                           .finish()
                           .value();
    } else {
        context.out << fmt::format("tasket {}\n", kTasketVersion);
    }
    return {};
}

} // namespace tasket::apps
