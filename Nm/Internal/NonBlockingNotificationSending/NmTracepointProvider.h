/* The seven events of provider "Kiv" on the caller's side of the non-blocking path. LTTng-UST reads this
 * header several times, so it has no #pragma once; it is plain C so that the probe provider, a separate
 * small shared object, can be built from it too. Code fires the events through Tracepoints.h. */

#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER Kiv

#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "Nm/Internal/NonBlockingNotificationSending/NmTracepointProvider.h"

#if !defined(KIV_NM_TRACEPOINT_PROVIDER_H) || defined(LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ)
#define KIV_NM_TRACEPOINT_PROVIDER_H

#include <lttng/tracepoint.h>

/* All events share one signature: the name of a task and of an instance. */
LTTNG_UST_TRACEPOINT_EVENT_CLASS(Kiv, NmNonBlockingStep,
                                 LTTNG_UST_TP_ARGS(const char*, TaskNameArg, const char*, InstanceNameArg),
                                 LTTNG_UST_TP_FIELDS(lttng_ust_field_string(TaskNameArg, TaskNameArg)
                                                         lttng_ust_field_string(InstanceNameArg,
                                                                                InstanceNameArg)))

#define KIV_NM_TRACEPOINT_EVENT(name)      \
    LTTNG_UST_TRACEPOINT_EVENT_INSTANCE(   \
        Kiv, NmNonBlockingStep, Kiv, name, \
        LTTNG_UST_TP_ARGS(const char*, TaskNameArg, const char*, InstanceNameArg))

KIV_NM_TRACEPOINT_EVENT(NmNonBlockingRegisterNotification)
KIV_NM_TRACEPOINT_EVENT(NmNonBlockingUnregisterNotification)
KIV_NM_TRACEPOINT_EVENT(NmNonBlockingSendNotification)
KIV_NM_TRACEPOINT_EVENT(NmNonBlockingProxyEnqueueCall)
KIV_NM_TRACEPOINT_EVENT(NmNonBlockingProxyEnqueueCallWithFuture)
KIV_NM_TRACEPOINT_EVENT(NmNonBlockingProxyCallCreated)
KIV_NM_TRACEPOINT_EVENT(NmNonBlockingProxyCallEnqueued)

#undef KIV_NM_TRACEPOINT_EVENT

#endif /* KIV_NM_TRACEPOINT_PROVIDER_H */

#include <lttng/tracepoint-event.h>
