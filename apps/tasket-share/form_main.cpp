// tasket-share-form: the share intake with Qt, which the desktop entry
// starts, and which tasket-share runs in its place when the form is wanted or
// a picture must be decoded. Wires the standard streams, Qt's image decoders
// and the form (when a display is present) into the program.
#include "common/program_start.h"
#include "common/qt_image_converter.h"
#include "tasket-share/share_program.h"

#include <QLoggingCategory>

int main(int argc, char** argv) {
    tasket::apps::startProgram();
    // A picture that cannot be decoded is reported once, in our words; the
    // decoders' own warnings would only repeat it.
    QLoggingCategory::setFilterRules(QStringLiteral("qt.gui.imageio*=false"));
    const tasket::apps::QtImageConverter converter;
    return tasket::apps::finishProgram(tasket::apps::runShareProgramMain(
        argc, argv, converter,
        [](const tasket::apps::ShareFormSettings& settings) {
            return tasket::apps::hasDisplay() ? tasket::apps::makeShareForm(settings) : nullptr;
        },
        nullptr)); // this build has the toolkit: nothing to hand over
}
