#include "platform/notifications/in_memory_user_notification_center.h"

namespace tasket::platform {

namespace {

template <class T> std::vector<T> values(const std::map<std::string, T>& byIdentifier) {
    std::vector<T> out;
    out.reserve(byIdentifier.size());
    for (const auto& [identifier, value] : byIdentifier) {
        out.push_back(value);
    }
    return out;
}

} // namespace

Result<> InMemoryUserNotificationCenter::setNotificationCategories(
    std::vector<NotificationCategory> categories) {
    std::lock_guard lock(m_mutex);
    m_categories.clear();
    for (auto& category : categories) {
        auto identifier = category.identifier;
        m_categories.insert_or_assign(std::move(identifier), std::move(category));
    }
    return {};
}

Result<std::vector<NotificationCategory>>
InMemoryUserNotificationCenter::notificationCategories() const {
    std::lock_guard lock(m_mutex);
    return values(m_categories);
}

Result<>
InMemoryUserNotificationCenter::addNotificationRequest(const NotificationRequest& request) {
    std::lock_guard lock(m_mutex);
    m_pending.insert_or_assign(request.identifier, request);
    return {};
}

Result<std::vector<NotificationRequest>>
InMemoryUserNotificationCenter::pendingNotificationRequests() const {
    std::lock_guard lock(m_mutex);
    return values(m_pending);
}

Result<> InMemoryUserNotificationCenter::removePendingNotificationRequests(
    std::span<const std::string> identifiers) {
    std::lock_guard lock(m_mutex);
    for (const auto& identifier : identifiers) {
        m_pending.erase(identifier);
    }
    return {};
}

Result<std::vector<DeliveredNotification>>
InMemoryUserNotificationCenter::deliveredNotifications() const {
    std::lock_guard lock(m_mutex);
    return values(m_delivered);
}

Result<> InMemoryUserNotificationCenter::removeDeliveredNotifications(
    std::span<const std::string> identifiers) {
    std::lock_guard lock(m_mutex);
    for (const auto& identifier : identifiers) {
        m_delivered.erase(identifier);
    }
    return {};
}

Result<> InMemoryUserNotificationCenter::setBadgeCount(int count) {
    if (count < 0) {
        return fail(Errc::invalidArgument, "a badge count cannot be negative");
    }
    std::lock_guard lock(m_mutex);
    m_badge = count;
    return {};
}

Result<int> InMemoryUserNotificationCenter::badgeCount() const {
    std::lock_guard lock(m_mutex);
    return m_badge;
}

Result<> InMemoryUserNotificationCenter::deliver(const std::string& identifier, Date at) {
    std::lock_guard lock(m_mutex);
    auto found = m_pending.find(identifier);
    if (found == m_pending.end()) {
        return fail(Errc::notFound, "no notification request is pending as \"" + identifier + "\"");
    }
    m_delivered.insert_or_assign(identifier, DeliveredNotification{std::move(found->second), at});
    m_pending.erase(found);
    return {};
}

} // namespace tasket::platform
