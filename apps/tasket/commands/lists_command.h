// `tasket lists`: the lists (categories) in the user's order, with how many
// tasks each holds; `tasket lists add|rename|archive` make and change them.
#pragma once

#include "tasket/command.h"

#include <string>

namespace tasket::apps {

class ListsCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    void addOptions(CLI::App& command) override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;

  private:
    [[nodiscard]] platform::Result<void> print(CommandContext& context);
    [[nodiscard]] platform::Result<void> change(CommandContext& context);

    CLI::App* m_add = nullptr;
    CLI::App* m_rename = nullptr;
    CLI::App* m_archive = nullptr;
    std::string m_name;
    std::string m_newName;
    bool m_unarchive = false;
};

} // namespace tasket::apps
