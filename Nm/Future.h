#pragma once

#include <Nm/IdType.h>

#include <Kiv/Exceptions.h>
#include <Kiv/Export.h>

#include <atomic>
#include <memory>
#include <type_traits>

namespace Kiv::System::Nm
{
/// The shared cell in which a non-blocking request ends. A worker writes the result once; any number of
/// copies, in any thread, may poll it. There is deliberately no blocking wait: a reader on a time-critical
/// path must be able to look without ever blocking, so no query takes a lock or allocates.
class KIV_API FutureBase
{
public:
    /// An exception kept in a finished state until the state is cleared.
    class KIV_API IExceptionWrapper
    {
    public:
        virtual ~IExceptionWrapper();
        /// Throws a new copy of the kept exception.
        [[noreturn]] virtual void Rethrow() const = 0;
    };

    /// Keeps a copy of an exception as E, so that the reader can catch it as E.
    template <class E>
    class ExceptionWrapper final : public IExceptionWrapper
    {
        static_assert(std::is_same_v<E, ArgumentException> || std::is_same_v<E, InvalidOperationException> ||
                          std::is_same_v<E, Exception>,
                      "a Future keeps ArgumentException, InvalidOperationException or Kiv::Exception");

    public:
        explicit ExceptionWrapper(const E& exception) : exception(exception) {}

        [[noreturn]] void Rethrow() const override { throw exception; }

    private:
        E exception;
    };

    virtual ~FutureBase();

    /// The Future stands for a request that was accepted.
    bool IsValid() const noexcept;
    /// The request is over, with a value or with an exception.
    bool HasValue() const noexcept;
    /// The request is over and ended with an exception.
    bool HasException() const noexcept;

    /// Throws Kiv::Exception while the request is not over, and a fresh copy of the kept exception if
    /// it ended with one. Returns only when there is a value to read.
    void CheckForValueAndException() const;

    /// Puts the state back to pending (true) or invalid (false) and drops a kept exception. The value is
    /// left in place, unreachable. Must not overlap a write of the result.
    void Clear(bool isValid);

    /// Finishes the request with a copy of `e`. The copy is kept as the most special of
    /// ArgumentException, InvalidOperationException and Kiv::Exception that the object is: other types
    /// of the family arrive at the reader as one of these, with their message and inner exception.
    template <class E>
    void SetException(const E& e)
    {
        static_assert(std::is_base_of_v<Exception, E>,
                      "a Future keeps exceptions of the Kiv::Exception family");
        StoreException(e);
    }

protected:
    /// The shared state. `hasValue` is the only synchronising field: a writer completes `value` or
    /// `exception` before it stores true, and a reader touches them only after it has loaded true.
    struct ImplBase
    {
        bool isValid = false;
        std::atomic<bool> hasValue{false};
        std::unique_ptr<IExceptionWrapper> exception;
    };

    /// The state; null only in a moved-from Future.
    virtual ImplBase* GetPImpl() = 0;
    virtual const ImplBase* GetPImpl() const = 0;

    /// The state for a writer; raises InvalidOperationException in a moved-from Future.
    ImplBase& GetStateForWriting();

private:
    void StoreException(const Exception& e);
};

/// The result of a non-blocking request, for NotificationNameId and NotificationId; Future<void> below.
/// Copies share one state, which lives as long as the last copy.
template <class T>
class KIV_API Future : public FutureBase
{
    static_assert(std::is_same_v<T, NotificationNameId> || std::is_same_v<T, NotificationId>,
                  "a Future holds void, NotificationNameId or NotificationId");

public:
    using ValueType = T;

    /// An invalid Future: it stands for no request.
    Future() : pImpl(std::make_shared<Impl>()) {}

    /// A pending Future, for the writer of a new request.
    static Future CreateByPromise()
    {
        Future future;
        future.pImpl->isValid = true;
        return future;
    }

    /// The value; see CheckForValueAndException for what is thrown instead.
    T GetValue() const
    {
        CheckForValueAndException();
        return pImpl->value;
    }

    /// Finishes the request with `value`.
    void SetValue(T value)
    {
        auto& state = static_cast<Impl&>(GetStateForWriting());
        state.value = value;
        state.hasValue.store(true);
    }

protected:
    ImplBase* GetPImpl() override { return pImpl.get(); }
    const ImplBase* GetPImpl() const override { return pImpl.get(); }

private:
    struct Impl : ImplBase
    {
        T value{};
    };

    std::shared_ptr<Impl> pImpl;
};

/// The result of a request that has no value: it tells only whether and how the request ended.
template <>
class KIV_API Future<void> : public FutureBase
{
public:
    using ValueType = void;

    /// An invalid Future: it stands for no request.
    Future();

    /// A pending Future, for the writer of a new request.
    static Future CreateByPromise();

    /// Returns if the request ended without exception; see CheckForValueAndException.
    void GetValue() const;

    /// Finishes the request.
    void SetValue();

protected:
    ImplBase* GetPImpl() override { return pImpl.get(); }
    const ImplBase* GetPImpl() const override { return pImpl.get(); }

private:
    std::shared_ptr<ImplBase> pImpl;
};
}  // namespace Kiv::System::Nm
