// `tasket version`: the program's name and version.
#pragma once

#include "tasket/command.h"

namespace tasket::apps {

class VersionCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;
};

} // namespace tasket::apps
