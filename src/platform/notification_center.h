// In-process notifications: posts with a sender and a typed payload,
// delivered synchronously on the posting thread to every matching observer.
// A notification is declared once with its payload type,
//     inline constexpr NotificationName<ChangeSet> kContextDidSave{"ObjectContextDidSave"};
// and posting and observing go through that declaration, so a handler can
// only ever receive the payload type the notification was declared with.
// Observation is held by a move-only token that unregisters when
// destroyed; once removal returns, the handler is never entered again.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <type_traits>
#include <typeindex>
#include <typeinfo>

namespace tasket::platform {

/// A notification and the type of what it carries (void: nothing). Two
/// declarations with the same text but different payloads never meet.
template <class Payload> struct NotificationName { std::string_view name; };

/// What an observer of a NotificationName<Payload> is called with.
template <class Payload> struct NotificationHandler {
    using type = std::function<void(const Payload& payload, const void* sender)>;
};
template <> struct NotificationHandler<void> {
    using type = std::function<void(const void* sender)>;
};

namespace detail {
struct NotificationCenterState;
// A handler with its payload type erased; the centre only calls it with a
// payload of the type it was registered for.
using ErasedHandler = std::function<void(const void* payload, const void* sender)>;
} // namespace detail

class ObserverToken {
  public:
    ObserverToken() = default;
    ObserverToken(ObserverToken&& other) noexcept;
    ObserverToken& operator=(ObserverToken&& other) noexcept;
    ObserverToken(const ObserverToken&) = delete;
    ObserverToken& operator=(const ObserverToken&) = delete;
    ~ObserverToken();

    /// Unregisters now (waits for a delivery running on another thread).
    void reset();
    [[nodiscard]] bool isActive() const { return m_id != 0; }

  private:
    friend class NotificationCenter;
    ObserverToken(std::weak_ptr<detail::NotificationCenterState> state, std::uint64_t id)
        : m_state(std::move(state)), m_id(id) {}
    std::weak_ptr<detail::NotificationCenterState> m_state;
    std::uint64_t m_id = 0;
};

class NotificationCenter {
  public:
    NotificationCenter();
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    /// The process-wide centre.
    [[nodiscard]] static NotificationCenter& defaultCenter();

    /// Observes posts of `name` from `sender` (nullptr: any sender).
    /// Thread-safe; observation lasts as long as the returned token.
    template <class Payload>
    [[nodiscard]] ObserverToken addObserver(const NotificationName<Payload>& name,
                                            const void* sender,
                                            typename NotificationHandler<Payload>::type handler) {
        detail::ErasedHandler erased;
        if constexpr (std::is_void_v<Payload>)
            erased = [h = std::move(handler)](const void*, const void* from) { h(from); };
        else
            erased = [h = std::move(handler)](const void* payload, const void* from) {
                h(*static_cast<const Payload*>(payload), from);
            };
        return add(name.name, typeid(Payload), sender, std::move(erased));
    }

    /// Delivers `payload` to every matching observer on the calling thread,
    /// in the order they registered. Thread-safe; handlers may add or remove
    /// observers and post again.
    template <class Payload>
    void post(const NotificationName<Payload>& name, const void* sender, const Payload& payload) {
        deliver(name.name, typeid(Payload), sender, &payload);
    }
    void post(const NotificationName<void>& name, const void* sender = nullptr) {
        deliver(name.name, typeid(void), sender, nullptr);
    }

  private:
    ObserverToken add(std::string_view name, std::type_index payload, const void* sender,
                      detail::ErasedHandler handler);
    void deliver(std::string_view name, std::type_index payloadType, const void* sender,
                 const void* payload);

    std::shared_ptr<detail::NotificationCenterState> m_state;
};

} // namespace tasket::platform
