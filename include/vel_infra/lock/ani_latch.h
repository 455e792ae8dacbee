#ifndef VEL_INFRA_LOCK_ANI_LATCH_H
#define VEL_INFRA_LOCK_ANI_LATCH_H

/* Spin locks for short critical sections.
 *
 * A lock type, an index into one process-wide table of 227 rows, says how long a waiter spins before it sleeps; the table counts the
 * sleeps of each type for monitoring. A type above the last row is type 0.
 *
 * A waiter tries, pauses 1, 2, 4 ... times up to the type's spinCount between tries, sleeps, and starts over. The lock is not
 * re-entrant and not fair. */

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

enum {
#define LOCK_TYPE(index, name, text) LOCK_TYPE_##name = (index),
#include <vel_infra/lock/ani_lock_types.def>
#undef LOCK_TYPE
    __LOCK_TYPE_COUNT__ = 227
};

/* One word: 0 free, 1 held. A zeroed lock is free. */
typedef struct SpinLock {
    volatile CodUint32 word;
} SpinLock;
COD_STATIC_ASSERT(sizeof(SpinLock) == 4, "layout is fixed");

typedef struct SpinLockAttr {
    const char *name;
    CodUint32 spinCount; /* the longest back-off in pause instructions; 0: sleep after every failed try */
    void (*sleep)(void);
    CodInt64 sleepTimes; /* sleeps of this type, counted atomically */
} SpinLockAttr;
COD_STATIC_ASSERT(sizeof(SpinLockAttr) == 32, "layout is fixed");

/* Takes the lock, waiting as long as it takes. lock must not be null, here and in the next two. */
COD_API void spinLock(SpinLock *lock, CodUint32 type);
/* One attempt. */
COD_NODISCARD COD_API CodBool spinTryLock(SpinLock *lock);
/* At most `times` attempts, pausing between them as a waiter does, and never sleeping. False: not taken. */
COD_NODISCARD COD_API CodBool spinTryLockTimes(SpinLock *lock, CodUint32 type, CodUint32 times);
/* Gives the lock back; nothing for a null lock. */
COD_API void spinUnlock(SpinLock *lock);

/* The type's row; never null. Rows change while in use: read sleepTimes as a snapshot. */
COD_API const SpinLockAttr *getSpinLockAttr(CodUint32 type);
/* Sleeps as the type says and counts it. */
COD_API void spinSleep(CodUint32 type);
/* Sleeps 100 microseconds and counts it for the thread. */
COD_API void spinSleepDefault(void);
/* How often the calling thread has slept in spinSleepDefault. */
COD_API CodUint32 spinGetTlsSleeps(void);

COD_END_DECLS

#endif
