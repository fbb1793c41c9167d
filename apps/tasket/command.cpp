#include "tasket/command.h"

namespace tasket::apps {

Command::~Command() = default;

void Command::addOptions(CLI::App&) {}

} // namespace tasket::apps
