// The share form on a plain terminal: asks for the task's text and its
// list, then whether to save. For a session without a display, or a
// program built without the form.
#pragma once

#include "share/share_view_controller.h"

#include <istream>
#include <ostream>

namespace tasket::apps {

enum class PromptOutcome { save, cancel };

/// Asks on `in`, writing the questions on `out`, and puts the answers into
/// `controller`'s form (its text and the picker's selection). End of input
/// or a "no" to saving cancels; a list answer that names no list is asked
/// again.
PromptOutcome askOnTerminal(share::ShareViewController& controller, std::istream& in,
                            std::ostream& out);

} // namespace tasket::apps
