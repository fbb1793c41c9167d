// `tasket reminders list|reschedule|remove`: the pending reminder requests
// the notification daemon delivers, for people and scripts.
#pragma once

#include "tasket/command.h"

#include <string>
#include <vector>

namespace tasket::apps {

class RemindersCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    void addOptions(CLI::App& command) override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;

  private:
    std::string m_action = "list";
    std::vector<std::string> m_identifiers;
    bool m_delivered = false;
};

} // namespace tasket::apps
