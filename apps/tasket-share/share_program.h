// tasket-share from its arguments to its exit status: reads what was
// shared, opens the store and the settings, loads the form's logic, lets
// the form, the terminal prompt or the command line (--yes) finish it, and
// ends only once the save it started has committed. main() only wires the
// standard streams, the image converter and the form in.
#pragma once

#include "platform/extension/image_converter.h"
#include "tasket-share/share_form.h"

#include <functional>
#include <istream>
#include <ostream>
#include <span>
#include <string>

namespace tasket::apps {

struct ShareProgramEnvironment {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    const platform::ImageConverter& imageConverter;
    /// Whether standard input is a terminal (picture bytes are never read from one).
    bool standardInputIsTerminal = false;
    /// Makes the form when a display is present and --yes is not given;
    /// null or returning null: ask on the terminal.
    std::function<std::unique_ptr<ShareForm>(const ShareFormSettings&)> makeForm;
};

/// Runs the program with `arguments` (without the program name) and returns
/// its exit status (see --help).
int runShareProgram(std::span<const std::string> arguments, ShareProgramEnvironment environment);

} // namespace tasket::apps
