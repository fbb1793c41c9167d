// tasket-share-form: the share intake with Qt, which tasket-share runs in
// its place when the form is wanted or a picture must be decoded. Wires the
// standard streams, Qt's image decoders and the form (when a display is
// present) into the program.
#include "common/exit_code.h"
#include "common/qt_image_converter.h"
#include "tasket-share/share_program.h"

#include <QLoggingCategory>
#include <exception>
#include <iostream>
#include <string>
#include <unistd.h>
#include <vector>

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
                        return tasket::apps::hasDisplay() ? tasket::apps::makeShareForm(settings)
                                                            : nullptr;
                    },
                .handOver = nullptr, // this build has the toolkit
            });
    } catch (const std::exception& exception) {
        std::cerr << "tasket-share: internal error: " << exception.what() << '\n';
        return tasket::apps::kExitSoftware;
    }
}
