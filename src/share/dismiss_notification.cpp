#include "share/dismiss_notification.h"

namespace tasket::share {

void postDismissNotification() {
    platform::NotificationCenter::defaultCenter().post(kDismissShareExtensionNotification);
}

} // namespace tasket::share
