#ifndef VEL_INFRA_UTILS_ANI_CLOCK_H
#define VEL_INFRA_UTILS_ANI_CLOCK_H

/* Clocks, without a calendar. Every function may be called from any thread and cannot fail. */

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

/* The wall clock: microseconds since 1970-01-01 00:00:00 UTC. Jumps when the system's time is set. */
COD_API CodDate codNow(void);
/* The same in the process's time zone: codNow plus the bias. */
COD_API CodDate codSysdate(void);
/* Minutes east of UTC of the process's time zone now. Reads the zone's settings anew (TZ, /etc/localtime), which costs a system call, and
 * must not run beside a setenv of TZ. */
COD_API CodInt16 codGetTimeZoneBias(void);

/* The monotonic clock, never set back: for durations and deadlines. In nanoseconds, and in microseconds. */
COD_API CodInstant codInstantNow(void);
COD_API CodInt64 codGetMonotonicTime(void);

COD_END_DECLS

#endif
