#include "share/dismiss_notification.h"

#include "platform/notification_center.h"

#include <string>

namespace tasket::share {

void postDismissNotification() {
    platform::NotificationCenter::defaultCenter().post(
        std::string(kDismissShareExtensionNotification));
}

} // namespace tasket::share
