// A notification center held in this process: the whole contract of the
// port, with nothing delivered unless the owner says so (deliver()), since
// there is no one to show a notification to.
#pragma once

#include "platform/notifications/user_notification_center.h"

#include <mutex>

namespace tasket::platform {

class InMemoryUserNotificationCenter final : public UserNotificationCenter {
  public:
    [[nodiscard]] Result<>
    setNotificationCategories(std::vector<NotificationCategory> categories) override;
    [[nodiscard]] Result<std::vector<NotificationCategory>> notificationCategories() const override;

    [[nodiscard]] Result<> addNotificationRequest(const NotificationRequest& request) override;
    [[nodiscard]] Result<std::vector<NotificationRequest>>
    pendingNotificationRequests() const override;
    [[nodiscard]] Result<>
    removePendingNotificationRequests(std::span<const std::string> identifiers) override;

    [[nodiscard]] Result<std::vector<DeliveredNotification>>
    deliveredNotifications() const override;
    [[nodiscard]] Result<>
    removeDeliveredNotifications(std::span<const std::string> identifiers) override;

    [[nodiscard]] Result<> setBadgeCount(int count) override;
    [[nodiscard]] Result<int> badgeCount() const override;

    /// Moves the pending request `identifier` to the delivered ones, as if it
    /// fired at `at` (replacing one delivered under the same identifier);
    /// fails with notFound when nothing is pending under it.
    [[nodiscard]] Result<> deliver(const std::string& identifier, Date at);

  private:
    mutable std::mutex m_mutex;
    std::map<std::string, NotificationCategory> m_categories;
    std::map<std::string, NotificationRequest> m_pending;
    std::map<std::string, DeliveredNotification> m_delivered;
    int m_badge = 0;
};

} // namespace tasket::platform
