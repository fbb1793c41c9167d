// `tasket tasks`: the tasks the selectors choose, newest first, streamed.
#pragma once

#include "tasket/command.h"
#include "tasket/task_selection.h"

namespace tasket::apps {

class TasksCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    void addOptions(CLI::App& command) override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;

  private:
    TaskSelection m_selection;
};

} // namespace tasket::apps
