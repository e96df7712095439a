#include <Nm/Future.h>
#include <Nm/Internal/Promise.h>

#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

using namespace Kiv::System::Nm;
using Kiv::System::Nm::Internal::Promise;

namespace
{
const char* const NotSet = "Kiv::System::Nm::Future<void>: GetValue() called, but no value has been set!";

// The message of the Kiv::Exception that GetValue throws, or a marker when it returns.
template <class T>
std::string GetValueFailure(const Future<T>& future)
{
    try
    {
        future.GetValue();
    }
    catch (const Kiv::Exception& e)
    {
        return e.GetMessage();
    }
    return "returned";
}

// The dynamic type and message of what GetValue throws.
template <class T>
std::pair<const std::type_info*, std::string> Thrown(const Future<T>& future)
{
    try
    {
        future.GetValue();
    }
    catch (const Kiv::Exception& e)
    {
        return {&typeid(e), e.GetMessage()};
    }
    return {nullptr, "returned"};
}
}  // namespace

TEST(FutureTest, InvalidAndPendingStatesHaveNoValueAndSayWhichFutureWasRead)
{
    Future<void> invalid;
    Future<NotificationId> pending = Future<NotificationId>::CreateByPromise();
    EXPECT_FALSE(invalid.IsValid() || invalid.HasValue() || invalid.HasException());
    EXPECT_TRUE(pending.IsValid());
    EXPECT_FALSE(pending.HasValue() || pending.HasException());
    // The name is that of Future<void> whatever the value type.
    EXPECT_EQ(GetValueFailure(invalid), NotSet);
    EXPECT_EQ(GetValueFailure(pending), NotSet);

    Future<NotificationId> moved = std::move(pending);
    EXPECT_FALSE(pending.IsValid() || pending.HasValue() || pending.HasException());
    EXPECT_EQ(GetValueFailure(pending), NotSet);
    EXPECT_THROW(pending.SetValue(NotificationId(1)), Kiv::InvalidOperationException);
    EXPECT_TRUE(moved.IsValid());
}

TEST(FutureTest, ValueIsSeenThroughEveryCopyAndZeroIsAValue)
{
    Promise<NotificationId> promise;
    const Future<NotificationId> copy = promise.GetFuture();
    promise.SetValue(NotificationId(0));
    EXPECT_TRUE(copy.IsValid() && copy.HasValue());
    EXPECT_FALSE(copy.HasException());
    EXPECT_EQ(copy.GetValue(), NotificationId(0));

    Promise<NotificationNameId> named;
    named.SetValue(NotificationNameId(0xFFFFFFFF));
    EXPECT_EQ(named.GetFuture().GetValue(), NotificationNameId(0xFFFFFFFF));

    Promise<void> done;
    EXPECT_EQ(GetValueFailure(done.GetFuture()), NotSet);
    done.SetValue();
    EXPECT_EQ(GetValueFailure(done.GetFuture()), "returned");
}

TEST(FutureTest, ExceptionIsKeptAsTheMostSpecialOfTheThreeTypesThatFits)
{
    auto argument = Kiv::ArgumentException::Create("arg", 5, "bad");
    Kiv::InvalidOperationException operation("Cannot send Notification. {}", "full");
    operation.SetInnerException(Kiv::NotSupportedException("inner"));
    const auto outOfRange = Kiv::ArgumentOutOfRangeException::Create("index", 9);
    const Kiv::Exception& seenAsBase = argument;

    const std::vector<std::pair<std::function<void(Promise<void>&)>, const std::type_info*>> cases = {
        {[&](Promise<void>& p) { p.SetException(argument); }, &typeid(Kiv::ArgumentException)},
        {[&](Promise<void>& p) { p.SetException(operation); }, &typeid(Kiv::InvalidOperationException)},
        {[&](Promise<void>& p) { p.SetException(outOfRange); }, &typeid(Kiv::ArgumentException)},
        {[&](Promise<void>& p) { p.SetException(seenAsBase); }, &typeid(Kiv::ArgumentException)},
        {[&](Promise<void>& p) { p.SetException(Kiv::NotSupportedException("no")); },
         &typeid(Kiv::Exception)},
    };
    for (const auto& [store, expectedType] : cases)
    {
        Promise<void> promise;
        store(promise);
        const Future<void> future = promise.GetFuture();
        EXPECT_TRUE(future.HasValue() && future.HasException() && future.IsValid());
        EXPECT_EQ(Thrown(future).first->name(), expectedType->name());
    }
    Promise<NotificationNameId> promise;
    promise.SetException(operation);
    try
    {
        promise.GetFuture().GetValue();
        FAIL() << "no exception";
    }
    catch (const Kiv::InvalidOperationException& e)
    {
        EXPECT_EQ(e.GetMessage(), "Cannot send Notification. full");
        ASSERT_NE(e.GetInnerException(), nullptr);
        EXPECT_EQ(e.GetInnerException()->GetTypeName(), "Kiv::NotSupportedException");
    }
    promise.SetException(argument);  // a second result replaces the first
    EXPECT_EQ(Thrown(promise.GetFuture()).second, argument.GetMessage());
}

TEST(FutureTest, EveryReadOfAnExceptionThrowsAFreshCopy)
{
    Promise<NotificationId> promise;
    promise.SetException(Kiv::Exception("broken"));
    std::exception_ptr first;
    std::exception_ptr second;
    try
    {
        promise.GetFuture().GetValue();
    }
    catch (const Kiv::Exception&)
    {
        first = std::current_exception();
    }
    try
    {
        promise.GetFuture().GetValue();
    }
    catch (const Kiv::Exception&)
    {
        second = std::current_exception();
    }
    ASSERT_TRUE(first && second);
    EXPECT_NE(first, second);
}

TEST(FutureTest, ReusedStateGoesBackToPendingOrInvalidWithoutItsOldResult)
{
    Future<NotificationId> future = Future<NotificationId>::CreateByPromise();
    const Future<NotificationId> heldByCaller = future;
    Promise<NotificationId>(future).SetException(Kiv::ArgumentException("old"));
    ASSERT_TRUE(heldByCaller.HasException());

    Promise<NotificationId> reused(future);
    EXPECT_TRUE(heldByCaller.IsValid());
    EXPECT_FALSE(heldByCaller.HasValue() || heldByCaller.HasException());
    EXPECT_EQ(GetValueFailure(heldByCaller), NotSet);
    reused.SetValue(NotificationId(42));
    EXPECT_EQ(heldByCaller.GetValue(), NotificationId(42));

    Promise<NotificationId>::Clear(future, false);
    EXPECT_FALSE(heldByCaller.IsValid() || heldByCaller.HasValue());

    Future<void> invalid;
    Promise<void> fromInvalid(invalid);
    EXPECT_TRUE(invalid.IsValid());
    EXPECT_FALSE(invalid.HasValue());
}
