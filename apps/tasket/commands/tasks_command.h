// `tasket tasks`: the tasks, newest first in the application's order,
// narrowed to one list and to titles holding a text.
#pragma once

#include "tasket/command.h"

#include <string>

namespace tasket::apps {

class TasksCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    void addOptions(CLI::App& command) override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;

  private:
    std::string m_list;
    std::string m_search;
};

} // namespace tasket::apps
