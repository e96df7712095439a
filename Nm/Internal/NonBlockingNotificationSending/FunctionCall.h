#pragma once

#include <Nm/Future.h>
#include <Nm/Internal/NonBlockingNotificationSending/IFunctionCall.h>
#include <Nm/Internal/Promise.h>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
/// A record with a result of type T, for NotificationNameId, void and NotificationId. It carries the
/// writing end of the caller's Future.
template <class T>
class FunctionCall : public IFunctionCall
{
public:
    using result_type = T;

    ~FunctionCall() override = default;

    /// Runs DoExecute. An exception of the Kiv::Exception family finishes the Future with a copy, kept
    /// as ArgumentException, InvalidOperationException or Kiv::Exception, whichever is the most special
    /// that fits. Anything else passes through and leaves the Future without value.
    void Execute(INotificationSending& sending) const override;

    /// A copy of the record's Future, sharing its state.
    Future<T> GetFuture() const { return promise.GetFuture(); }

protected:
    /// Makes a new pending Future.
    FunctionCall() = default;
    /// Takes over the state of `future` and puts it back to pending; an older result is gone.
    explicit FunctionCall(Future<T> future) : promise(std::move(future)) {}
    FunctionCall(FunctionCall&&) noexcept = default;
    FunctionCall& operator=(FunctionCall&&) noexcept = default;

    virtual void DoExecute(INotificationSending& sending) const = 0;

    /// Runs `work` as Execute runs DoExecute: false when a failure finished the Future.
    template <class TWork>
    bool RunFinishingOnFailure(TWork&& work) const;

    /// Execute is const, as the worker sees the record, yet it writes the result.
    Promise<T>& GetPromise() const { return promise; }

private:
    mutable Promise<T> promise;
};
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending

#include <Nm/Internal/NonBlockingNotificationSending/FunctionCall.inl>
