// `tasket import`: transfer records from a file, or the tasks of a
// Taskwarrior export, written into the store in one save, or not at all.
#pragma once

#include "tasket/command.h"

#include <string>

namespace tasket::apps {

class ImportCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    void addOptions(CLI::App& command) override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;

  private:
    std::string m_file;
    bool m_dryRun = false;
    bool m_fromTaskwarrior = false;
};

} // namespace tasket::apps
