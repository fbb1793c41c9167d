// `tasket edit`: change a task's title, list and the fields `tasket add` sets.
#pragma once

#include "tasket/command.h"
#include "tasket/task_fields.h"

#include <optional>
#include <string>

namespace tasket::apps {

class EditCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    void addOptions(CLI::App& command) override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;

  private:
    std::string m_taskID;
    std::optional<std::string> m_title;
    std::optional<std::string> m_list;
    TaskFields m_fields;
};

} // namespace tasket::apps
