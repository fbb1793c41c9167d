// tasket-share from its arguments to its exit status: reads what was
// shared, opens the store and the settings, loads the form's logic, lets
// the form, the terminal prompt or the command line (--yes) finish it, and
// ends only once the save it started has committed. main() only wires the
// standard streams, the image converter and the form in.
#pragma once

#include "platform/extension/image_converter.h"
#include "tasket-share/share_form.h"
#include "tasket-share/share_options.h"

#include <functional>
#include <istream>
#include <optional>
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
    /// Set in the build without the UI toolkit: given the parsed options,
    /// either lets this process carry on (nullopt) or, when the form or the
    /// decoding of a picture is needed, runs the build with the toolkit in
    /// this process's place, returning only the exit status of a failure to.
    std::function<std::optional<int>(const ShareOptions&)> handOver;
};

/// Whether a display is present, or Qt is told to draw off screen (the
/// form's screenshots and tests).
bool hasDisplay();

/// Runs the program with `arguments` (without the program name) and returns
/// its exit status (see --help).
int runShareProgram(std::span<const std::string> arguments, ShareProgramEnvironment environment);

/// main() of both builds: the program on the standard streams with `argv`,
/// an internal error reported as such.
int runShareProgramMain(int argc, char** argv, const platform::ImageConverter& imageConverter,
                        decltype(ShareProgramEnvironment::makeForm) makeForm,
                        decltype(ShareProgramEnvironment::handOver) handOver);

} // namespace tasket::apps
