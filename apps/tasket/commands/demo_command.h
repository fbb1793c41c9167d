// `tasket demo`: writes one task into the store and reads it back, to show
// that the store in the application-group folder works end to end.
#pragma once

#include "tasket/command.h"

namespace tasket::apps {

class DemoCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    void addOptions(CLI::App& command) override;
    platform::Result<void> run(CommandContext& context) override;

  private:
    std::string m_title = "Hello from tasket";
};

} // namespace tasket::apps
