// `tasket export`: the store's objects as transfer records, one line each,
// read a batch at a time so that memory stays flat however large the store.
#pragma once

#include "tasket/command.h"

#include <string>

namespace tasket::apps {

class ExportCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    void addOptions(CLI::App& command) override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;

  private:
    std::string m_list;
    bool m_all = false;
    std::string m_out;
};

} // namespace tasket::apps
