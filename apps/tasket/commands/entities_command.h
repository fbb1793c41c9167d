// `tasket entities tasks|lists|focus-lists`: the automation entities, found
// by identifier, by text, or as the suggestions, for shortcuts and scripts.
#pragma once

#include "tasket/command.h"

#include <optional>
#include <string>
#include <vector>

namespace tasket::apps {

class EntitiesCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    void addOptions(CLI::App& command) override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;

  private:
    std::string m_kind;
    std::vector<std::string> m_identifiers;
    std::optional<std::string> m_search;
    bool m_excludingLists = false;
};

} // namespace tasket::apps
