// `tasket sync status|setup|now`: the cloud database that mirrors the store
// between accounts. setup records the connection (a libpq connection string
// or service name) and prepares the server; status says whether it can be
// reached and how the last sync went; now uploads what is owed and fetches
// what others changed. syncBeforeCommand() is the same pass for --sync.
#pragma once

#include "tasket/command.h"

#include <memory>
#include <ostream>
#include <string>

namespace tasket::platform {
class ServerCloudContainer;
class PreferencesSuite;
} // namespace tasket::platform

namespace tasket::apps {

class SyncCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    void addOptions(CLI::App& command) override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;

  private:
    [[nodiscard]] platform::Result<void> status(CommandContext& context,
                                                const platform::PreferencesSuite& suite,
                                                const std::string& connection);
    [[nodiscard]] platform::Result<void>
    syncNow(CommandContext& context, std::shared_ptr<platform::ServerCloudContainer> container,
            std::shared_ptr<platform::PreferencesSuite> suite);

    std::string m_action;
    std::string m_connection;
};

/// --sync: when cloud sync is on, one pass before the command runs. A
/// failure is one line of warning on `err`; the command runs all the same.
void syncBeforeCommand(std::ostream& err);

} // namespace tasket::apps
