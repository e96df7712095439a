#pragma once

// A service is described once: its names, whether it is guarded, and a list of its operations, each as
//
//     Operation(methodId, Result, Name, ArgumentTypes...)
//
// in the order of its interface, with the argument types in their wire order. The interface names the
// description (`using Description = ...;`), and the templates of TulServiceBases.h derive from it the
// proxy's calls, the stub's dispatch, the security stub's checks and the factories. A description:
//
//     #define KIV_EXAMPLE_OPERATIONS(Operation)                         (each line but the last
//         Operation(1, std::uint32_t, Add, std::uint32_t, std::uint32_t)   continued by a backslash)
//         Operation(2, void, Reset)
//     struct ExampleDescription
//     {
//         using Interface = IExampleService;
//         using Codec = ExampleCodec;  // static Write(TulWriter&, const T&) and Read(TulReader&, T&)
//         static constexpr const char* serviceName = "Example.IExampleService";
//         static constexpr const char* providerName = "Example";
//         static constexpr bool guarded = false;
//         KIV_TUL_OPERATION_TABLE(KIV_EXAMPLE_OPERATIONS)
//     };
//
// A type with a comma in it (a template of two arguments) goes in as an alias.

#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>
#include <Kiv/System/Tul/TulServerContext.h>

#include <boost/preprocessor/cat.hpp>
#include <boost/preprocessor/control/iif.hpp>
#include <boost/preprocessor/facilities/is_empty.hpp>
#include <boost/preprocessor/punctuation/comma_if.hpp>
#include <boost/preprocessor/seq/for_each_i.hpp>
#include <boost/preprocessor/tuple/eat.hpp>
#include <boost/preprocessor/variadic/to_seq.hpp>

#include <tuple>
#include <type_traits>
#include <utility>

namespace Kiv::System::Tul
{
template <class TMethod>
struct TulMethodTraits;

template <class TClass, class TResult, class... TArguments>
struct TulMethodTraits<TResult (TClass::*)(TArguments...)>
{
    using Result = TResult;
    using Arguments = std::tuple<std::decay_t<TArguments>...>;

    /// Calls `method` with `arguments`, which are used up: what it takes by value or by rvalue reference is
    /// moved, what it takes by reference is lent.
    template <auto method, class TService>
    static TResult Call(TService& service, Arguments& arguments)
    {
        return std::apply([&service](auto&... argument)
                          { return (service.*method)(std::forward<TArguments>(argument)...); },
                          arguments);
    }
};

/// The server side of one call of `method`: reads the arguments in order, calls, confirms and writes the
/// result, if any. Catches nothing: a failure leaves before the confirmation and reaches the caller.
template <class TCodec, auto method, class TService>
void TulServe(TService& service, TulServerContext& context)
{
    using Traits = TulMethodTraits<decltype(method)>;
    typename Traits::Arguments arguments;
    std::apply([&context](auto&... argument) { (TCodec::Read(context.GetReader(), argument), ...); },
               arguments);
    if constexpr (std::is_void_v<typename Traits::Result>)
    {
        Traits::template Call<method>(service, arguments);
        context.GetWriter().WriteConfirmation(false);
    }
    else
    {
        const typename Traits::Result result = Traits::template Call<method>(service, arguments);
        context.GetWriter().WriteConfirmation(false);
        TCodec::Write(context.GetWriter(), result);
    }
}

/// One row of a description's operation table.
template <class TInterface>
struct TulOperation
{
    unsigned short methodId;
    /// As spelled in the interface; what an authorizator is asked for.
    const char* name;
    void (*serve)(TInterface& service, TulServerContext& context);
};

/// The row of `methodId` in the table of `TDescription`, or null.
template <class TDescription>
const TulOperation<typename TDescription::Interface>* FindTulOperation(int methodId)
{
    for (const auto& operation : TDescription::operations)
    {
        if (operation.methodId == methodId)
        {
            return &operation;
        }
    }
    return nullptr;
}
}  // namespace Kiv::System::Tul

// Parameters of the argument types, named argument0, argument1 and so on, and those names to pass on.
#define KIV_TUL_PARAMETER(r, data, index, Type) BOOST_PP_COMMA_IF(index) Type BOOST_PP_CAT(argument, index)
#define KIV_TUL_ARGUMENT(r, data, index, Type) BOOST_PP_COMMA_IF(index) BOOST_PP_CAT(argument, index)
#define KIV_TUL_FOR_EACH_TYPE(macro, ...)                                                       \
    BOOST_PP_IIF(BOOST_PP_IS_EMPTY(__VA_ARGS__), BOOST_PP_TUPLE_EAT(), BOOST_PP_SEQ_FOR_EACH_I) \
    (macro, ~, BOOST_PP_VARIADIC_TO_SEQ(__VA_ARGS__))
#define KIV_TUL_PARAMETERS(...) KIV_TUL_FOR_EACH_TYPE(KIV_TUL_PARAMETER, __VA_ARGS__)
#define KIV_TUL_ARGUMENTS(...) KIV_TUL_FOR_EACH_TYPE(KIV_TUL_ARGUMENT, __VA_ARGS__)

/// Inside a description: the table of its operations, from the list macro `list`.
#define KIV_TUL_OPERATION_TABLE(list) \
    static constexpr ::Kiv::System::Tul::TulOperation<Interface> operations[] = {list(KIV_TUL_OPERATION_ROW)};
#define KIV_TUL_OPERATION_ROW(methodId, Result, Name, ...) \
    {methodId, #Name, &::Kiv::System::Tul::TulServe<Codec, &Interface::Name, Interface>},

/// Inside a class: the declaration of an operation that overrides the interface's.
#define KIV_TUL_OVERRIDE(methodId, Result, Name, ...) Result Name(KIV_TUL_PARAMETERS(__VA_ARGS__)) override;

/// Inside a TulServiceProxyBase: the operation as one call of its method id.
#define KIV_TUL_PROXY_OPERATION(methodId, Result, Name, ...)                                                 \
    Result Name(KIV_TUL_PARAMETERS(__VA_ARGS__)) override                                                    \
    {                                                                                                        \
        return this->template Call<Result>(methodId, std::forward_as_tuple(KIV_TUL_ARGUMENTS(__VA_ARGS__))); \
    }

/// Inside a TulServiceSecurityStubBase: the operation asks for the right to it by its name first.
#define KIV_TUL_GUARDED_OPERATION(methodId, Result, Name, ...) \
    Result Name(KIV_TUL_PARAMETERS(__VA_ARGS__)) override      \
    {                                                          \
        this->authorizator.AuthorizeServiceInvocation(#Name);  \
        return Impl::Name(KIV_TUL_ARGUMENTS(__VA_ARGS__));     \
    }
