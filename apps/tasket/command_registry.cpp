#include "tasket/command_registry.h"

#include "tasket/commands/add_command.h"
#include "tasket/commands/count_command.h"
#include "tasket/commands/delete_command.h"
#include "tasket/commands/done_command.h"
#include "tasket/commands/edit_command.h"
#include "tasket/commands/entities_command.h"
#include "tasket/commands/export_command.h"
#include "tasket/commands/focus_command.h"
#include "tasket/commands/import_command.h"
#include "tasket/commands/lists_command.h"
#include "tasket/commands/lock_command.h"
#include "tasket/commands/reminders_command.h"
#include "tasket/commands/show_command.h"
#include "tasket/commands/smart_lists_command.h"
#include "tasket/commands/tasks_command.h"
#include "tasket/commands/version_command.h"

#include <array>

namespace tasket::apps {
namespace {

template <class C> std::unique_ptr<Command> make() {
    return std::make_unique<C>();
}

// Adding a command: write its class under commands/ and add one line here.
constexpr std::array kCommandTable{
    &make<ListsCommand>,      &make<TasksCommand>,    &make<CountCommand>,   &make<AddCommand>,
    &make<DoneCommand>,       &make<UndoneCommand>,   &make<EditCommand>,    &make<DeleteCommand>,
    &make<SmartListsCommand>, &make<ShowCommand>,     &make<VersionCommand>, &make<LockCommand>,
    &make<FocusCommand>,      &make<EntitiesCommand>, &make<ExportCommand>,  &make<ImportCommand>,
    &make<RemindersCommand>,
};

} // namespace

std::vector<std::unique_ptr<Command>> makeCommands() {
    std::vector<std::unique_ptr<Command>> commands;
    commands.reserve(kCommandTable.size());
    for (const auto factory : kCommandTable)
        commands.push_back(factory());
    return commands;
}

} // namespace tasket::apps
