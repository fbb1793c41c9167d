// The build without a form: tasket-share always asks on the terminal.
#include "tasket-share/share_form.h"

namespace tasket::apps {

ShareForm::~ShareForm() = default;

std::unique_ptr<ShareForm> makeShareForm() {
    return nullptr;
}

} // namespace tasket::apps
