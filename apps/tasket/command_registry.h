// The table of every tasket command, in the order the help lists them.
#pragma once

#include "tasket/command.h"

#include <memory>
#include <vector>

namespace tasket::apps {

/// A fresh instance of every command, in table order.
std::vector<std::unique_ptr<Command>> makeCommands();

} // namespace tasket::apps
