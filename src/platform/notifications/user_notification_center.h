// The port to the user's notification service: scheduled local requests
// (a reminder at a calendar minute), the categories whose actions a
// delivered notification offers, the notifications already delivered and
// the application badge. The reminder logic is written against this and
// nothing else.
//
// Adapters: InMemoryUserNotificationCenter (one process, for tests and for
// programs that deliver nothing) and NotificationQueue (a small SQLite
// database in the group container that the notification daemon delivers
// from; see notification_queue.h for its schema).
//
// Contract shared by every adapter:
// - setNotificationCategories() replaces the whole installed set.
// - addNotificationRequest() with an identifier already pending replaces
//   that request (content and trigger); identifiers are unique among the
//   pending requests, and among the delivered notifications.
// - pendingNotificationRequests() lists the pending requests by identifier
//   (byte order); deliveredNotifications() the delivered ones likewise.
// - Removing identifiers that are not there is not an error; a removal
//   touches only its own list (pending or delivered).
// - The badge count is never negative; setting a negative one fails with
//   invalidArgument.
#pragma once

#include "platform/date.h"
#include "platform/error.h"

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tasket::platform {

/// Options of an action, combined as bits (the values the stored records use).
enum NotificationActionOptions : unsigned {
    kActionAuthenticationRequired = 1, // runs only while the session is unlocked
    kActionDestructive = 2,
    kActionForeground = 4, // brings the application forward
};

/// Options of a category, combined as bits.
enum NotificationCategoryOptions : unsigned {
    kCategoryCustomDismissAction = 1, // the application hears when the user dismisses
};

/// A button on a delivered notification.
struct NotificationAction {
    std::string identifier;
    std::string title;    // already translated
    unsigned options = 0; // NotificationActionOptions
    std::string iconName; // a symbolic icon name; empty for none

    friend bool operator==(const NotificationAction&, const NotificationAction&) = default;
};

/// A kind of notification: the actions it offers, in order.
struct NotificationCategory {
    std::string identifier;
    std::vector<NotificationAction> actions;
    std::vector<std::string> intentIdentifiers;
    unsigned options = 0; // NotificationCategoryOptions

    friend bool operator==(const NotificationCategory&, const NotificationCategory&) = default;
};

/// How strongly a notification may interrupt. Stored as these numbers.
enum class InterruptionLevel : std::uint8_t {
    passive = 0,       // no sound, no wake
    active = 1,        // the default presentation
    timeSensitive = 2, // breaks through a focus
};

struct NotificationContent {
    std::string title;
    std::string subtitle; // empty: none
    std::string body;
    bool defaultSound = false;
    std::optional<int> badge; // the badge count to show on delivery; nullopt leaves it
    std::string categoryIdentifier;
    std::map<std::string, std::string> userInfo;
    InterruptionLevel interruptionLevel = InterruptionLevel::active;
    double relevanceScore = 0.0; // 0 … 1

    friend bool operator==(const NotificationContent&, const NotificationContent&) = default;
};

/// A calendar trigger: the local minute (in the user's zone at the time it
/// is checked) at which the request fires. With `repeats` it fires each time
/// the components match again; without, once.
struct CalendarTrigger {
    int year = 2001;
    int month = 1; // 1 = January
    int day = 1;
    int hour = 0;
    int minute = 0;
    bool repeats = false;

    friend bool operator==(const CalendarTrigger&, const CalendarTrigger&) = default;
};

struct NotificationRequest {
    std::string identifier;
    NotificationContent content;
    CalendarTrigger trigger;

    friend bool operator==(const NotificationRequest&, const NotificationRequest&) = default;
};

/// A request that has fired and is still shown (or kept in the list).
struct DeliveredNotification {
    NotificationRequest request;
    Date deliveredAt;

    friend bool operator==(const DeliveredNotification&, const DeliveredNotification&) = default;
};

class UserNotificationCenter {
  public:
    virtual ~UserNotificationCenter() = default;

    // ---- Categories ----------------------------------------------------------------
    /// Installs `categories` in place of whatever set was installed.
    [[nodiscard]] virtual Result<>
    setNotificationCategories(std::vector<NotificationCategory> categories) = 0;
    /// The installed set, by identifier.
    [[nodiscard]] virtual Result<std::vector<NotificationCategory>>
    notificationCategories() const = 0;

    // ---- Pending requests ------------------------------------------------------------
    /// Schedules `request`; one pending under the same identifier is replaced.
    [[nodiscard]] virtual Result<> addNotificationRequest(const NotificationRequest& request) = 0;
    [[nodiscard]] virtual Result<std::vector<NotificationRequest>>
    pendingNotificationRequests() const = 0;
    [[nodiscard]] virtual Result<>
    removePendingNotificationRequests(std::span<const std::string> identifiers) = 0;

    // ---- Delivered notifications -----------------------------------------------------
    [[nodiscard]] virtual Result<std::vector<DeliveredNotification>>
    deliveredNotifications() const = 0;
    [[nodiscard]] virtual Result<>
    removeDeliveredNotifications(std::span<const std::string> identifiers) = 0;

    // ---- Badge ---------------------------------------------------------------------
    [[nodiscard]] virtual Result<> setBadgeCount(int count) = 0;
    [[nodiscard]] virtual Result<int> badgeCount() const = 0;
};

} // namespace tasket::platform
