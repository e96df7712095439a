#include <Nm/Future.h>
#include <Nm/Internal/Promise.h>

#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <utility>

using namespace Kiv::System::Nm;
using Kiv::System::Nm::Internal::Promise;

namespace
{
// How GetValue ends: "returned", or message, dynamic type and inner exceptions of what it threw.
template <class T>
std::string Outcome(const Future<T>& future, std::exception_ptr* thrown = nullptr)
{
    try
    {
        future.GetValue();
    }
    catch (const Kiv::Exception& e)
    {
        if (thrown != nullptr)
        {
            *thrown = std::current_exception();
        }
        return e.ToString();
    }
    return "returned";
}
}  // namespace

TEST(FutureTest, OnlyAFinishedRequestCanBeReadAndAnExceptionIsThrownAfreshAtEveryRead)
{
    const std::string notSet =
        "Kiv::System::Nm::Future<void>: GetValue() called, but no value has been set! (Kiv::Exception)";
    Future<NotificationId> pending = Future<NotificationId>::CreateByPromise();
    EXPECT_EQ(Outcome(Future<void>()), notSet);
    EXPECT_TRUE(pending.IsValid() && !pending.HasValue() && !pending.HasException());
    EXPECT_EQ(Outcome(pending), notSet);

    const Future<NotificationId> copy = pending;
    Promise<NotificationId>(pending).SetValue(NotificationId(0));
    EXPECT_TRUE(copy.HasValue() && !copy.HasException());
    EXPECT_EQ(copy.GetValue(), NotificationId(0));

    // An exception keeps its type and inner exception, replaces an earlier result and is thrown afresh.
    auto argument = Kiv::ArgumentException::Create("arg", 5, "bad");
    Kiv::InvalidOperationException operation("Cannot send Notification. {}", "full");
    operation.SetInnerException(Kiv::NotSupportedException("inner"));

    Promise<NotificationNameId> promise;
    promise.SetException(operation);
    EXPECT_EQ(Outcome(promise.GetFuture()),
              "Cannot send Notification. full (Kiv::InvalidOperationException)\nInnerException:\n"
              "   inner (Kiv::NotSupportedException)");
    // Stored through a reference to the base, and replacing the earlier result.
    promise.SetException(static_cast<const Kiv::Exception&>(argument));
    std::exception_ptr first;
    std::exception_ptr second;
    EXPECT_EQ(Outcome(promise.GetFuture(), &first), argument.GetMessage() + " (Kiv::ArgumentException)");
    EXPECT_EQ(Outcome(promise.GetFuture(), &second), argument.GetMessage() + " (Kiv::ArgumentException)");
    EXPECT_NE(first, second);
}
