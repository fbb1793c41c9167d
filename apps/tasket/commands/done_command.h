// `tasket done` and `tasket undone`: mark tasks completed, or not.
#pragma once

#include "tasket/command.h"

#include <string>
#include <vector>

namespace tasket::apps {

class CompletionCommand : public Command {
  public:
    void addOptions(CLI::App& command) override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;

  protected:
    explicit CompletionCommand(bool completed) : m_completed(completed) {}

  private:
    bool m_completed;
    std::vector<std::string> m_taskIDs;
};

class DoneCommand final : public CompletionCommand {
  public:
    DoneCommand() : CompletionCommand(true) {}
    const CommandInfo& info() const override;
};

class UndoneCommand final : public CompletionCommand {
  public:
    UndoneCommand() : CompletionCommand(false) {}
    const CommandInfo& info() const override;
};

} // namespace tasket::apps
