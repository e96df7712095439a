#pragma once

#include <Nm/Internal/NonBlockingNotificationSending/FunctionCall.h>

#include <Kiv/Exceptions.h>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
template <class T>
void FunctionCall<T>::Execute(INotificationSending& sending) const
{
    RunFinishingOnFailure([this, &sending] { DoExecute(sending); });
}

template <class T>
template <class TWork>
bool FunctionCall<T>::RunFinishingOnFailure(TWork&& work) const
{
    // The order of the handlers decides as which type a reader can catch the failure.
    try
    {
        work();
        return true;
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
    return false;
}
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
