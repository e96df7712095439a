// The one place where the events are defined and registered with LTTng-UST when the library is loaded.
// With dynamic probe linkage the library needs only dlopen: the tracing runtime is looked for at load,
// and without it the events stay off and everything else runs the same.
#if KIV_TRACEPOINTS_ENABLED
#define LTTNG_UST_TRACEPOINT_DEFINE
#define LTTNG_UST_TRACEPOINT_PROBE_DYNAMIC_LINKAGE
// Every firing site is inside this library, so the event records need not be exported.
#define LTTNG_UST_TRACEPOINT_HIDDEN_DEFINITION
#include <Nm/Internal/NonBlockingNotificationSending/NmTracepointProvider.h>
#endif
