#include "tasket/task_listing.h"

#include "platform/json_writer.h"
#include "rules/texts.h"

#include <fmt/format.h>

namespace tasket::apps {

namespace {

// The pretty object, indented one level for its place in the array, without
// its final newline.
std::string indentedObject(const TaskReport& task) {
    auto json = platform::JsonWriter::nested(1);
    writeTask(json, task);
    std::string text = json.finish().value();
    text.pop_back();
    return text;
}

} // namespace

void TaskListing::add(const TaskReport& task) {
    const std::string title =
        task.title.empty() ? std::string(rules::texts::kNewTask.translated()) : task.title;
    if (m_json) {
        m_out << (m_count == 0 ? "[\n  " : ",\n  ") << indentedObject(task);
    } else if (m_style.width() == 0 && !m_style.colour()) {
        m_out << fmt::format("{}\t{}\t{}\t{}\t{}\n", task.taskID, title, task.list,
                             dateText(task.due), task.isCompleted ? "done" : "pending");
    } else {
        using Tone = TerminalStyle::Tone;
        const std::string mark = task.isCompleted ? "✓" : "·";
        const std::string due = task.due ? "  " + dateText(task.due) : std::string();
        // id, mark, title, list, due: the title gives way first.
        const std::size_t fixed = task.taskID.size() + 3 + 2 + columns(task.list) + columns(due);
        const std::size_t room =
            m_style.width() == 0 ? 0 : (m_style.width() > fixed + 8 ? m_style.width() - fixed : 8);
        m_out << m_style.paint(Tone::dim, task.taskID) << ' '
              << m_style.paint(task.isCompleted ? Tone::done : Tone::dim, mark) << ' '
              << fitted(title, room) << "  " << m_style.paint(Tone::list, task.list)
              << m_style.paint(task.isOverdue ? Tone::overdue : Tone::dim, due) << '\n';
    }
    ++m_count;
}

void printTask(std::ostream& out, bool json, const TaskReport& task) {
    if (json) {
        platform::JsonWriter writer;
        writeTask(writer, task);
        out << writer.finish().value();
    } else {
        out << describeTask(task);
    }
}

void TaskListing::finish() {
    if (m_json)
        m_out << (m_count == 0 ? "[]\n" : "\n]\n");
    m_out.flush();
}

} // namespace tasket::apps
