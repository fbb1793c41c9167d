// `tasket lock enable|disable|status`: the app lock. Switching it asks for
// the user's authentication first; the status shows no stored data, so it
// runs while locked.
#pragma once

#include "tasket/command.h"

#include <string>

namespace tasket::apps {

class LockCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    void addOptions(CLI::App& command) override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;

  private:
    std::string m_action;
};

} // namespace tasket::apps
