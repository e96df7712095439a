#pragma once

#include <Nm/Internal/NonBlockingNotificationSending/EmptyFunctionCall.h>
#include <Nm/Internal/NonBlockingNotificationSending/RegisterNotificationCall.h>
#include <Nm/Internal/NonBlockingNotificationSending/SendNotificationCallCreatePayloadRawPointer.h>
#include <Nm/Internal/NonBlockingNotificationSending/SendNotificationCallCreatePayloadStdFunction.h>
#include <Nm/Internal/NonBlockingNotificationSending/SendNotificationCallRawPayload.h>
#include <Nm/Internal/NonBlockingNotificationSending/UnregisterNotificationCall.h>

#include <type_traits>
#include <variant>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
/// The slot type of the ring buffer: one record by value. The order of the alternatives is fixed; a fresh
/// slot holds EmptyFunctionCall.
using FunctionCallVariant =
    std::variant<EmptyFunctionCall, RegisterNotificationCall, UnregisterNotificationCall,
                 SendNotificationCallRawPayload, SendNotificationCallCreatePayloadStdFunction,
                 SendNotificationCallCreatePayloadRawPointer>;

// Records go into and out of the slots by move, under the ring buffer's lock: those moves must neither
// allocate nor throw, or a slot could be left without a record.
static_assert(std::is_nothrow_move_constructible_v<FunctionCallVariant>);
static_assert(std::is_nothrow_move_assignable_v<FunctionCallVariant>);
static_assert(!std::is_copy_constructible_v<FunctionCallVariant>);
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
