#ifndef VEL_INFRA_UTILS_ANI_CLOCK_H
#define VEL_INFRA_UTILS_ANI_CLOCK_H

/* Clocks, without a calendar. Every function may be called from any thread and cannot fail. */

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

/* The wall clock: microseconds since 1970-01-01 00:00:00 UTC. Jumps when the system's time is set. */
COD_API CodDate codNow(void);

/* The monotonic clock: nanoseconds, never set back. For durations and deadlines. */
COD_API CodInstant codInstantNow(void);

COD_END_DECLS

#endif
