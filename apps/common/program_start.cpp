#include "common/program_start.h"

#include "platform/main_queue.h"
#include "platform/text_catalogue.h"

#include <csignal>

namespace tasket::apps {

void startProgram() {
    platform::startTextCatalogue();
    // With SIGXFSZ ignored, a write past RLIMIT_FSIZE fails with EFBIG, which
    // the store reports as a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
}

int finishProgram(int status) {
    platform::MainQueue::shared().pump();
    return status;
}

} // namespace tasket::apps
