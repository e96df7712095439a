#pragma once

#include <Nm/INotificationReceiving.h>
#include <Nm/INotificationSubscriber.h>
#include <Nm/IdType.h>

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>
#include <Kiv/Logging/Loggable.h>
#include <Kiv/Threading/Mutex.h>

#include <forward_list>
#include <memory>
#include <utility>

namespace Kiv::System::Nm
{
class Notification;

/// A subscription to one notification name for as long as this object lives: it subscribes through the
/// process's NotificationManager when built, hands each notification to the handlers attached to it, and
/// unsubscribes when disposed or destroyed. Movable; a moved-from object is not subscribed.
///
/// Attach handlers before notifications can arrive: Notify reads the lists without a lock.
class KIV_API NotificationSubscriber : public INotificationSubscriber,
                                       public Commons::Logging::Loggable<NotificationSubscriber, false, false>
{
public:
    /// A handler called with the context it was attached with.
    using Handler = void (*)(void* context, const Notification& notification);

    /// Subscribes; the manager's or the broker's refusal leaves the constructor.
    explicit NotificationSubscriber(const String& notificationName);
    /// The same: subscribing always goes through the process's NotificationManager, whatever is passed.
    NotificationSubscriber(const String& notificationName, INotificationReceiving& notificationReceiving);
    NotificationSubscriber(const NotificationSubscriber&) = delete;
    NotificationSubscriber& operator=(const NotificationSubscriber&) = delete;
    /// Takes over the subscription and the handlers without a gap in delivery.
    NotificationSubscriber(NotificationSubscriber&& other);
    /// Drops this object's own subscription and takes over `other`'s.
    NotificationSubscriber& operator=(NotificationSubscriber&& other);
    ~NotificationSubscriber() override;

    /// Subscribes, unless subscribed; brings a disposed object back.
    void Initialize();
    /// Unsubscribes, if subscribed. A failure is logged and the subscription kept, so a later call tries
    /// again; nothing is thrown.
    void Dispose() noexcept;
    bool IsInitialized() const { return notificationNameId != NotificationNameId(0); }
    String GetNotificationName() const { return notificationName; }
    NotificationNameId GetNotificationNameId() const { return notificationNameId; }

    /// Calls the plain handlers, then the owning ones, each in the order attached. A handler's exception
    /// ends the call and is reported by the dispatcher.
    void Notify(const Notification& notification) override;

    /// Attaches `handler`, called with `context`, which the caller keeps alive.
    void AddHandler(void* context, Handler handler);
    /// Attaches a callable that this object keeps, and shares with the objects it is moved to.
    template <class F>
    void AddHandler(F function)
    {
        auto owned = std::make_shared<F>(std::move(function));
        AddSharedHandler(owned, [](void* context, const Notification& notification)
                         { (*static_cast<F*>(context))(notification); });
    }
    /// Detaches every handler.
    void RemoveHandlers();

    /// Moves `other`'s live subscription and handlers to this object; `other` is left unsubscribed.
    void TranferSubscriptionFrom(NotificationSubscriber& other);

private:
    struct MethodHandler
    {
        void* context;
        Handler function;
    };
    struct SharedHandler
    {
        Handler function;
        void* context;
        std::shared_ptr<void> owner;
    };

    void AddSharedHandler(std::shared_ptr<void> owner, Handler handler);

    std::forward_list<MethodHandler> methodHandlers;
    std::forward_list<SharedHandler> sharedHandlers;
    String notificationName;
    NotificationNameId notificationNameId{};
    Commons::Threading::Mutex handlerMutex{true};
};
}  // namespace Kiv::System::Nm
