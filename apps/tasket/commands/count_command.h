// `tasket count`: how many tasks the selectors of `tasket tasks` choose.
#pragma once

#include "tasket/command.h"
#include "tasket/task_selection.h"

namespace tasket::apps {

class CountCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    void addOptions(CLI::App& command) override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;

  private:
    TaskSelection m_selection;
};

} // namespace tasket::apps
