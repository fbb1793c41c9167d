// The options `tasket add` and `tasket edit` share, and writing them into
// a task: its note, link, due and start dates (typed as people write them;
// "none" clears one), whether those are all-day, tags, priority, status and
// pin, and the reminders: a due or start date with its reminder on, the
// reminders' interruption level, their repetition, or both switched off.
// A name that does not exist fails before anything is written.
#pragma once

#include "objectstore/object_context.h"
#include "platform/calendar.h"
#include "platform/date.h"
#include "platform/error.h"
#include "store/records.h"

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace tasket::apps {

class TaskFields {
  public:
    /// `editing`: the options of `tasket edit`, which can also unpin. A new
    /// task's reminders are active unless --level says otherwise.
    void addOptions(CLI::App& command, bool editing);

    /// Writes the given options into `task` (in its context, not saved).
    /// `calendar` is asked for the zone's calendar only when a date is
    /// given: making it reads the zone's rules, a good part of a plain add.
    [[nodiscard]] platform::Result<void> apply(store::TK_Task& task, platform::Date now,
                                               const platform::Calendar& (&calendar)()) const;

  private:
    std::optional<std::string> m_note;
    std::optional<std::string> m_url;
    std::optional<std::string> m_due;
    std::optional<std::string> m_start;
    bool m_allDay = false;
    std::vector<std::string> m_tags;
    std::optional<std::string> m_priority;
    std::optional<std::string> m_status;
    bool m_pin = false;
    bool m_unpin = false;
    std::optional<std::string> m_remind;
    std::optional<std::string> m_remindStart;
    std::optional<std::string> m_level;
    std::optional<std::string> m_repeat;
    std::optional<int> m_every;
    bool m_noRemind = false;
    bool m_editing = false;
};

} // namespace tasket::apps
