/* The probe provider of the "Kiv" events: a separate shared object, linked with LTTng-UST, that a process
 * loads (LD_PRELOAD or dlopen) when it wants to be traced. The library itself never links it. */
#define LTTNG_UST_TRACEPOINT_CREATE_PROBES
#include <Nm/Internal/NonBlockingNotificationSending/NmTracepointProvider.h>
