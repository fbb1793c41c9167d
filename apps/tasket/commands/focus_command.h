// `tasket focus set LIST…|clear|status`: the focus filter. Setting it
// narrows the tasks every program shows to those lists; every running
// program follows the change.
#pragma once

#include "tasket/command.h"

#include <string>
#include <vector>

namespace tasket::apps {

class FocusCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    void addOptions(CLI::App& command) override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;

  private:
    std::string m_action;
    std::vector<std::string> m_lists;
};

} // namespace tasket::apps
