// Writes tasks as they are read, one at a time, so a long listing starts
// at once and holds only the current batch: lines for people (fitted to
// the terminal and coloured there; tab-separated otherwise) or one JSON
// array whose elements are the objects `tasket show --json` prints.
#pragma once

#include "common/task_report.h"
#include "tasket/terminal_style.h"

#include <ostream>

namespace tasket::apps {

class TaskListing {
  public:
    TaskListing(std::ostream& out, bool json, TerminalStyle style)
        : m_out(out), m_json(json), m_style(style) {}

    void add(const TaskReport& task);
    /// Closes the JSON array; lines need nothing.
    void finish();

  private:
    std::ostream& m_out;
    bool m_json;
    TerminalStyle m_style;
    std::size_t m_count = 0;
};

/// One task as `tasket show` prints it: the JSON object, or the description.
void printTask(std::ostream& out, bool json, const TaskReport& task);

} // namespace tasket::apps
