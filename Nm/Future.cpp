#include <Nm/Future.h>

#include <Nm/TypeName.h>

namespace Kiv::System::Nm
{
namespace
{
// The check lives in FutureBase, so the messages name Future<void> whatever the value type is.
String FutureTypeName()
{
    return TypeName<Future<void>>().GetName();
}
}  // namespace

FutureBase::IExceptionWrapper::~IExceptionWrapper() = default;

FutureBase::~FutureBase() = default;

bool FutureBase::IsValid() const noexcept
{
    const ImplBase* state = GetPImpl();
    return state != nullptr && state->isValid;
}

bool FutureBase::HasValue() const noexcept
{
    const ImplBase* state = GetPImpl();
    return state != nullptr && state->hasValue.load();
}

bool FutureBase::HasException() const noexcept
{
    const ImplBase* state = GetPImpl();
    // The wrapper may only be looked at once hasValue has been seen true.
    return state != nullptr && state->hasValue.load() && state->exception != nullptr;
}

void FutureBase::CheckForValueAndException() const
{
    const ImplBase* state = GetPImpl();
    if (state == nullptr || !state->hasValue.load())
    {
        throw Exception("{}: GetValue() called, but no value has been set!", FutureTypeName());
    }
    if (state->exception != nullptr)
    {
        // The wrapper stays, so every further read throws another copy.
        state->exception->Rethrow();
    }
}

void FutureBase::Clear(bool isValid)
{
    ImplBase& state = GetStateForWriting();
    state.isValid = isValid;
    state.exception.reset();
    state.hasValue.store(false);
}

FutureBase::ImplBase& FutureBase::GetStateForWriting()
{
    ImplBase* state = GetPImpl();
    if (state == nullptr)
    {
        throw InvalidOperationException("{}: the Future has been moved from and has no state.",
                                        FutureTypeName());
    }
    return *state;
}

void FutureBase::StoreException(const Exception& e)
{
    ImplBase& state = GetStateForWriting();
    // Sliced on purpose to the most special type a reader is promised to be able to catch.
    std::unique_ptr<IExceptionWrapper> wrapper;
    if (const auto* argument = dynamic_cast<const ArgumentException*>(&e))
    {
        wrapper = std::make_unique<ExceptionWrapper<ArgumentException>>(*argument);
    }
    else if (const auto* operation = dynamic_cast<const InvalidOperationException*>(&e))
    {
        wrapper = std::make_unique<ExceptionWrapper<InvalidOperationException>>(*operation);
    }
    else
    {
        wrapper = std::make_unique<ExceptionWrapper<Exception>>(e);
    }
    state.exception = std::move(wrapper);
    state.hasValue.store(true);
}

Future<void>::Future() : pImpl(std::make_shared<ImplBase>()) {}

Future<void> Future<void>::CreateByPromise()
{
    Future future;
    future.pImpl->isValid = true;
    return future;
}

void Future<void>::GetValue() const
{
    CheckForValueAndException();
}

void Future<void>::SetValue()
{
    GetStateForWriting().hasValue.store(true);
}
}  // namespace Kiv::System::Nm
