// `tasket calendars [list] | sources [ROOT…] | link LIST --as reminders|events
// | unlink LIST | sync`: the calendar mirror. A linked list is kept in step
// with a calendar of the calendar sources (the "Calendar.Sources" setting:
// vdir folders) as a reminders list or an event calendar.
#pragma once

#include "tasket/command.h"

#include <string>
#include <vector>

namespace tasket::apps {

class CalendarsCommand final : public Command {
  public:
    const CommandInfo& info() const override;
    void addOptions(CLI::App& command) override;
    [[nodiscard]] platform::Result<void> run(CommandContext& context) override;

  private:
    std::string m_action = "list";
    std::vector<std::string> m_arguments;
    std::string m_as;
};

} // namespace tasket::apps
