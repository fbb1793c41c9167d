// The notification every way out of the share form ends with; the entry
// controller answers it by completing the share request.
#pragma once

#include "platform/notification_center.h"

namespace tasket::share {

inline constexpr platform::NotificationName<void> kDismissShareExtensionNotification{
    "Lumenforge.QRX.Tasket.Dismiss.Share.Extension"};

/// Posts the dismiss notification on the default centre, with no sender.
void postDismissNotification();

} // namespace tasket::share
