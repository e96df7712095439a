#pragma once

#include <Nm/Internal/NonBlockingNotificationSending/FunctionCall.h>

#include <Kiv/Exceptions.h>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
template <class T>
void FunctionCall<T>::Execute(INotificationSending& sending) const
{
    // The order of the handlers decides as which type a reader can catch the failure.
    try
    {
        DoExecute(sending);
    }
    catch (const ArgumentException& e)
    {
        promise.SetException(e);
    }
    catch (const InvalidOperationException& e)
    {
        promise.SetException(e);
    }
    catch (const Exception& e)
    {
        promise.SetException(e);
    }
}
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
