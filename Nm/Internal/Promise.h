#pragma once

#include <Nm/Future.h>

#include <utility>

namespace Kiv::System::Nm::Internal
{
/// The writing end of a Future, held by the request that fills it. Copies of the Future handed out
/// before or after share the state with it.
template <class T>
class Promise
{
public:
    /// A new state, pending.
    Promise() : future(Future<T>::CreateByPromise()) {}

    /// Takes over the state of `future` and puts it back to pending, so that a Future made ahead of time
    /// serves a new request without a new allocation. An older value or exception is gone from here on.
    explicit Promise(Future<T> future) : future(std::move(future)) { this->future.Clear(true); }

    /// A copy that shares the state.
    Future<T> GetFuture() const { return future; }

    /// Finishes the request; takes what Future<T>::SetValue takes (nothing for void).
    template <class... Value>
    void SetValue(Value&&... value)
    {
        future.SetValue(std::forward<Value>(value)...);
    }

    /// Finishes the request with a copy of `e`, kept as FutureBase::SetException keeps it.
    template <class E>
    void SetException(const E& e)
    {
        future.SetException(e);
    }

    static void Clear(Future<T>& future, bool isValid) { future.Clear(isValid); }

private:
    Future<T> future;
};
}  // namespace Kiv::System::Nm::Internal
