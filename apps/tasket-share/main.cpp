// tasket-share: the share intake. Wires the standard streams, Qt's image
// decoders and the form (when one is compiled in and a display is present)
// into the program.
#include "common/exit_code.h"
#include "common/qt_image_converter.h"
#include "tasket-share/share_program.h"

#include <QLoggingCategory>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace {

// A display, or Qt told to draw off screen (the form's screenshots and tests).
bool hasDisplay() {
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
    const char* x11 = std::getenv("DISPLAY");
    const char* platform = std::getenv("QT_QPA_PLATFORM");
    return (wayland && *wayland) || (x11 && *x11) ||
           (platform && std::string_view(platform).starts_with("offscreen"));
}

} // namespace

int main(int argc, char** argv) {
    // A picture that cannot be decoded is reported once, in our words; the
    // decoders' own warnings would only repeat it.
    QLoggingCategory::setFilterRules(QStringLiteral("qt.gui.imageio*=false"));
    try {
        const std::vector<std::string> arguments(argv + 1, argv + argc);
        const tasket::apps::QtImageConverter converter;
        return tasket::apps::runShareProgram(
            arguments,
            {
                .in = std::cin,
                .out = std::cout,
                .err = std::cerr,
                .imageConverter = converter,
                .standardInputIsTerminal = ::isatty(STDIN_FILENO) == 1,
                .makeForm =
                    [](const tasket::apps::ShareFormSettings& settings) {
                        return hasDisplay() ? tasket::apps::makeShareForm(settings) : nullptr;
                    },
            });
    } catch (const std::exception& exception) {
        std::cerr << "tasket-share: internal error: " << exception.what() << '\n';
        return tasket::apps::kExitSoftware;
    }
}
