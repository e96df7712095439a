#include <Nm/Future.h>
#include <Nm/Internal/Promise.h>

#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <string>
#include <utility>

using namespace Kiv::System::Nm;
using Kiv::System::Nm::Internal::Promise;

namespace
{
const std::string NotSet =
    "Kiv::System::Nm::Future<void>: GetValue() called, but no value has been set! (Kiv::Exception)";

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

TEST(FutureTest, OnlyAFinishedRequestCanBeReadAndZeroIsAValue)
{
    Future<void> invalid;
    Future<NotificationId> pending = Future<NotificationId>::CreateByPromise();
    EXPECT_FALSE(invalid.IsValid() || invalid.HasValue() || invalid.HasException());
    EXPECT_TRUE(pending.IsValid() && !pending.HasValue() && !pending.HasException());
    EXPECT_EQ(Outcome(invalid), NotSet);
    EXPECT_EQ(Outcome(pending), NotSet);

    Promise<NotificationId> promise(pending);
    const Future<NotificationId> copy = pending;
    promise.SetValue(NotificationId(0));
    EXPECT_TRUE(copy.HasValue() && !copy.HasException());
    EXPECT_EQ(copy.GetValue(), NotificationId(0));
    Promise<void> done;
    done.SetValue();
    EXPECT_EQ(Outcome(done.GetFuture()), "returned");
    Promise<NotificationId>::Clear(pending, false);
    EXPECT_FALSE(copy.IsValid() || copy.HasValue());

    // A moved-from Future must not be used, but reading it does no harm.
    const Future<NotificationId> moved = std::move(pending);
    EXPECT_FALSE(pending.IsValid() || pending.HasValue() || pending.HasException());
    EXPECT_EQ(Outcome(pending), NotSet);
    EXPECT_THROW(pending.SetValue(NotificationId(1)), Kiv::InvalidOperationException);
}

TEST(FutureTest, AnExceptionIsKeptAsTheMostSpecialOfTheThreeTypesAndThrownAfreshAtEveryRead)
{
    auto argument = Kiv::ArgumentException::Create("arg", 5, "bad");
    const Kiv::Exception& argumentAsBase = argument;
    Kiv::InvalidOperationException operation("Cannot send Notification. {}", "full");
    operation.SetInnerException(Kiv::NotSupportedException("inner"));
    const std::string argumentText = argument.GetMessage() + " (Kiv::ArgumentException)";
    const std::pair<std::function<void(Promise<NotificationNameId>&)>, std::string> rows[] = {
        {[&](auto& p) { p.SetException(argument); }, argumentText},
        {[&](auto& p) { p.SetException(argumentAsBase); }, argumentText},
        {[](auto& p) { p.SetException(Kiv::ArgumentOutOfRangeException::Create("i", 9)); },
         "Specified argument was out of the range of valid values. (argument 'i', value '9') "
         "(Kiv::ArgumentException)"},
        {[&](auto& p) { p.SetException(operation); },
         "Cannot send Notification. full (Kiv::InvalidOperationException)\nInnerException:\n"
         "   inner (Kiv::NotSupportedException)"},
        {[](auto& p) { p.SetException(Kiv::NotSupportedException("no")); }, "no (Kiv::Exception)"},
        {[&](auto& p)  // a later result replaces an earlier one
         {
             p.SetException(operation);
             p.SetException(argument);
         },
         argumentText},
    };
    for (const auto& [store, expected] : rows)
    {
        Promise<NotificationNameId> promise;
        store(promise);
        const Future<NotificationNameId> future = promise.GetFuture();
        EXPECT_TRUE(future.IsValid() && future.HasValue() && future.HasException());
        std::exception_ptr first;
        std::exception_ptr second;
        EXPECT_EQ(Outcome(future, &first), expected);
        EXPECT_EQ(Outcome(future, &second), expected);
        EXPECT_NE(first, second);
    }
}
