// `tasket delete`: delete tasks, after asking on a terminal.
#pragma once

#include "tasket/command.h"

#include <string>
#include <vector>

namespace tasket::apps {

class DeleteCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    void addOptions(CLI::App& command) override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;

  private:
    std::vector<std::string> m_taskIDs;
    bool m_yes = false;
};

} // namespace tasket::apps
