#ifndef VEL_INFRA_UTILS_ANI_TIMER_H
#define VEL_INFRA_UTILS_ANI_TIMER_H

/* The cached clock: a thread that notes the time every millisecond, so that readers pay one load instead of a call.
 *
 * Thread safety
 * 1. Readers may read at any time, also while the clock starts or stops, and take each field as it stands: at most a little more than a
 *    millisecond old while the thread runs.
 * 2. A `now` of 0 means "no time yet": the record is zeroed, its clock was stopped, or this process is a fork's child in which it was not
 *    started. The fork's parent goes on.
 * 3. A record must stay where it is between start and stop, in memory that the process does not share. Several records may run at
 *    once. Starting and stopping one record is for one thread at a time. */

#include <pthread.h>

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

/* Zeroed before its first start. The first four fields are for readers, all through __atomic_load_n or the functions below. */
typedef struct CodTimer {
    CodDate now;           /* codNow; 0: no time yet */
    CodInt64 seconds;      /* time() */
    CodInt64 monotonic;    /* codGetMonotonicTime: microseconds */
    CodInt16 timeZoneBias; /* codGetTimeZoneBias: minutes east of UTC */
    CodBool running;       /* the rest is the clock's own */
    CodBool stopping;
    pthread_t thread;
    struct CodTimer *next;
} CodTimer;
COD_STATIC_ASSERT(sizeof(CodTimer) <= 4096, "clients reserve room for it");

/* Starts the clock; the record holds the time when this returns. Success at once when it runs already.
 * Errors: ERR_CMM_CREATE_THREAD. */
COD_API CodResult codStartTimer(CodTimer *timer);
/* Stops the clock and waits for its thread, at most some milliseconds; the record then holds no time. Nothing when it does not run. */
COD_API void codStopTimer(CodTimer *timer);
/* The thread's procedure: notes the time every millisecond until the clock is stopped. timer is the CodTimer. Returns null. */
COD_API void *codTimerProc(void *timer);

/* The noted time in UTC, and in the process's time zone; 0: no time yet, or a null timer. */
COD_API CodDate codTimerNow(const CodTimer *timer);
COD_API CodDate codTimerLocalTime(const CodTimer *timer);

COD_END_DECLS

#endif
