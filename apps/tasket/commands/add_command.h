// `tasket add`: a new task in a list, with the fields `tasket edit` sets.
#pragma once

#include "tasket/command.h"
#include "tasket/task_fields.h"

#include <string>

namespace tasket::apps {

class AddCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    void addOptions(CLI::App& command) override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;

  private:
    std::string m_title;
    std::string m_list;
    bool m_createList = false;
    TaskFields m_fields;
};

} // namespace tasket::apps
