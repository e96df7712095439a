#pragma once

// Fires one event of provider "Kiv". With nobody listening, a site costs the load of the event's state
// word and one branch: the arguments are constant, so nothing is computed ahead of that test. Built with
// KIV_TRACEPOINTS off, a site is nothing at all.
#if KIV_TRACEPOINTS_ENABLED
#include <Nm/Internal/NonBlockingNotificationSending/NmTracepointProvider.h>
#define KIV_NM_TRACEPOINT(event) lttng_ust_tracepoint(Kiv, event, "", "")
#else
#define KIV_NM_TRACEPOINT(event) ((void)0)
#endif
