// `tasket show ID`: one task with its link, list and attachments.
#pragma once

#include "tasket/command.h"

#include <string>

namespace tasket::apps {

class ShowCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    void addOptions(CLI::App& command) override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;

  private:
    std::string m_taskID;
};

} // namespace tasket::apps
