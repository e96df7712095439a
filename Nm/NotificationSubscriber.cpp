#include <Nm/NotificationManager.h>
#include <Nm/NotificationSubscriber.h>

#include <Kiv/Exception.h>

namespace Kiv::System::Nm
{
using Commons::Logging::LogLevel;
using Commons::Threading::Mutex;

NotificationSubscriber::NotificationSubscriber(const String& notificationName)
    : notificationName(notificationName)
{
    Initialize();
}

NotificationSubscriber::NotificationSubscriber(const String& notificationName, INotificationReceiving&)
    : NotificationSubscriber(notificationName)
{
}

NotificationSubscriber::NotificationSubscriber(NotificationSubscriber&& other)
    : notificationName(other.notificationName)
{
    TranferSubscriptionFrom(other);
}

NotificationSubscriber& NotificationSubscriber::operator=(NotificationSubscriber&& other)
{
    if (this != &other)
    {
        notificationName = other.notificationName;
        TranferSubscriptionFrom(other);
    }
    return *this;
}

NotificationSubscriber::~NotificationSubscriber()
{
    Dispose();
}

void NotificationSubscriber::Initialize()
{
    if (IsInitialized())
    {
        return;
    }
    notificationNameId = NotificationManager::GetInstance().Subscribe(notificationName, this);
}

void NotificationSubscriber::Dispose() noexcept
{
    if (!IsInitialized())
    {
        return;
    }
    try
    {
        NotificationManager::GetInstance().UnsubscribeFromAll(this);
        notificationNameId = NotificationNameId(0);
    }
    catch (const Exception& e)
    {
        Log(LogLevel::Error,
            "Caught exception while unsubscribing from notificationName={0} id={1} this={2}: {3}",
            notificationName, notificationNameId, static_cast<const void*>(this), e.ToString());
    }
    catch (...)
    {
        Log(LogLevel::Error, "Caught exception while unsubscribing from notificationName={0} id={1} this={2}",
            notificationName, notificationNameId, static_cast<const void*>(this));
    }
}

void NotificationSubscriber::Notify(const Notification& notification)
{
    // Handlers may be added while the system delivers; the lock is recursive, so a handler may add one.
    Mutex::ScopedLock lock(handlerMutex);
    for (const MethodHandler& handler : methodHandlers)
    {
        handler.function(handler.context, notification);
    }
    for (const SharedHandler& handler : sharedHandlers)
    {
        handler.function(handler.context, notification);
    }
}

namespace
{
/// New handlers go behind the others, so they run in the order attached.
template <class T>
void Append(std::forward_list<T>& list, T element)
{
    auto last = list.before_begin();
    for (auto it = list.begin(); it != list.end(); ++it)
    {
        last = it;
    }
    list.insert_after(last, std::move(element));
}
}  // namespace

void NotificationSubscriber::AddHandler(void* context, Handler handler)
{
    Mutex::ScopedLock lock(handlerMutex);
    Append(methodHandlers, MethodHandler{context, handler});
}

void NotificationSubscriber::AddSharedHandler(std::shared_ptr<void> owner, Handler handler)
{
    Mutex::ScopedLock lock(handlerMutex);
    void* context = owner.get();
    Append(sharedHandlers, SharedHandler{handler, context, std::move(owner)});
}

void NotificationSubscriber::RemoveHandlers()
{
    Mutex::ScopedLock lock(handlerMutex);
    methodHandlers.clear();
    sharedHandlers.clear();
}

void NotificationSubscriber::TranferSubscriptionFrom(NotificationSubscriber& other)
{
    NotificationManager& manager = NotificationManager::GetInstance();
    // Handlers first: a delivery on another thread may still be served by `other` until the exchange.
    {
        Mutex::ScopedLock mine(handlerMutex);
        Mutex::ScopedLock theirs(other.handlerMutex);
        methodHandlers = other.methodHandlers;
        sharedHandlers = other.sharedHandlers;
    }
    notificationNameId = other.notificationNameId;
    manager.ReplaceSubscriber(&other, this);
    other.notificationNameId = NotificationNameId(0);
    Mutex::ScopedLock theirs(other.handlerMutex);
    other.methodHandlers.clear();
    other.sharedHandlers.clear();
}
}  // namespace Kiv::System::Nm
