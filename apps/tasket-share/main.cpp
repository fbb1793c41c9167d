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
#include <unistd.h>
#include <vector>

namespace {

bool hasDisplay() {
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
    const char* x11 = std::getenv("DISPLAY");
    return (wayland && *wayland) || (x11 && *x11);
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
                .makeForm = [] { return hasDisplay() ? tasket::apps::makeShareForm() : nullptr; },
            });
    } catch (const std::exception& exception) {
        std::cerr << "tasket-share: internal error: " << exception.what() << '\n';
        return tasket::apps::kExitSoftware;
    }
}
