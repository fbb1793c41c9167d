#include "tasket-share/share_lock.h"

#include "rules/texts.h"

#include <fmt/format.h>

namespace tasket::apps {

platform::Error withoutLists(const platform::Error& failure, std::string_view named) {
    if (failure.code != platform::Errc::notFound)
        return failure;
    return {failure.code, fmt::format("there is no list \"{}\" ({}: the lists are not shown)",
                                      named, rules::texts::kTasketIsLocked.translated())};
}

TaskReport withoutList(TaskReport task) {
    task.list = fmt::format("({})", rules::texts::kTasketIsLocked.translated());
    task.listID.clear();
    return task;
}

} // namespace tasket::apps
