// `tasket lists`: the lists (categories) in the user's order, with how many
// tasks each holds.
#pragma once

#include "tasket/command.h"

namespace tasket::apps {

class ListsCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;
};

} // namespace tasket::apps
