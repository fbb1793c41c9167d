// The form hook's out-of-line parts, so the program links without knowing
// which form (if any) main() plugs in.
#include "tasket-share/share_form.h"

namespace tasket::apps {

ShareForm::~ShareForm() = default;

} // namespace tasket::apps
