// The notification every way out of the share form ends with; the entry
// controller answers it by completing the share request.
#pragma once

#include <string_view>

namespace tasket::share {

inline constexpr std::string_view kDismissShareExtensionNotification =
    "Lumenforge.QRX.Tasket.Dismiss.Share.Extension";

/// Posts the dismiss notification on the default centre, with no sender.
void postDismissNotification();

} // namespace tasket::share
