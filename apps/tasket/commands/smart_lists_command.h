// `tasket smart-lists`: the smart lists with how many tasks each shows, and
// `tasket smart-lists add|edit NAME` with one option per filter dimension.
#pragma once

#include "tasket/command.h"

#include <optional>
#include <string>
#include <vector>

namespace tasket::apps {

class SmartListsCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    void addOptions(CLI::App& command) override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;

  private:
    [[nodiscard]] platform::Result<void> print(CommandContext& context);
    [[nodiscard]] platform::Result<void> save(CommandContext& context);
    void addFilterOptions(CLI::App& command);

    CLI::App* m_add = nullptr;
    CLI::App* m_edit = nullptr;
    std::string m_name;
    std::optional<std::string> m_title;

    // One per dimension; unset: left as it is (off for a new smart list).
    std::optional<std::string> m_completed, m_notes, m_link, m_subtasks, m_pinned, m_attachments;
    std::vector<std::string> m_start, m_due;
    // Chosen objects: "off", "no", nothing (any) or names.
    std::vector<std::string> m_lists, m_tags, m_priorities, m_statuses, m_values;
};

} // namespace tasket::apps
