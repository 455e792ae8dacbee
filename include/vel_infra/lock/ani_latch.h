#ifndef VEL_INFRA_LOCK_ANI_LATCH_H
#define VEL_INFRA_LOCK_ANI_LATCH_H

/* Spin locks for short critical sections, and latches: reader/writer locks over a spin lock, whose waiting writer keeps new readers out.
 *
 * A lock type, an index into one process-wide table of 227 rows, says how long a waiter spins before it sleeps; the table counts the
 * sleeps of each type for monitoring. A type above the last row is type 0.
 *
 * Thread safety
 * 1. A spin lock's waiter tries, pauses 1, 2, 4 ... times up to the type's spinCount between tries, sleeps, and starts over. The lock is
 *    not re-entrant and not fair.
 * 2. A latch's fields change only under its spin lock; its waiters read them without it, one pause at a time, and sleep after spinCount
 *    pauses.
 * 3. From the moment a writer waits in LATCH_IX no reader enters, so that readers cannot starve it.
 * 4. What was written under a lock or latch is seen by the next holder.
 * 5. A lock or latch must not be null, but for spinUnlock. Nothing here allocates or raises errors.
 *
 * A program compiled with COD_LOCK_ORDER_CHECK defined, as debug builds of this library are, checks the order in which locks of different
 * types are taken (ani_lock_order.h). */

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

enum {
#define LOCK_TYPE(index, name, text) LOCK_TYPE_##name = (index),
#include <vel_infra/lock/ani_lock_types.def>
#undef LOCK_TYPE
    __LOCK_TYPE_COUNT__ = 227
};

/* ---- Spin locks ---- */

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

/* Takes the lock, waiting as long as it takes. */
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

/* A lock type that has slept. */
typedef struct SpinReportRow {
    CodUint32 type;
    const char *name; /* a constant text */
    CodInt64 sleepTimes;
} SpinReportRow;

/* The types that have slept, most sleeps first, those of equal sleeps by type; the first `capacity` of them go to rows, which may be
 * null when capacity is 0. Returns how many there are. A snapshot while locks are in use. */
COD_API CodUint32 spinReport(SpinReportRow *rows, CodUint32 capacity);

/* ---- Latches ---- */

typedef enum LatchStatus COD_ENUM_BASE {
    LATCH_IDLE = 0,
    LATCH_S = 1,  /* held shared */
    LATCH_IX = 2, /* a writer waits for the readers to leave; no new reader may enter */
    LATCH_X = 3,  /* held exclusively */
} LatchStatus;

/* No exclusive holder. */
#define LATCH_NO_HOLDER ((CodUint16)65535)

/* A zeroed latch is idle, too. */
typedef struct Latch {
    SpinLock lock; /* guards the fields below */
    volatile CodUint8 status;
    volatile CodUint8 latchXTimes;  /* exclusive acquisitions outstanding; above 1 only for re-entrant use */
    volatile CodUint16 sharedCount; /* readers inside */
    volatile CodUint16 xhid;        /* the exclusive holder's id */
} Latch;
COD_STATIC_ASSERT(sizeof(Latch) == 12, "layout is fixed");
COD_STATIC_ASSERT(offsetof(Latch, status) == 4 && offsetof(Latch, sharedCount) == 6 && offsetof(Latch, xhid) == 8, "layout is fixed");

/* Idle, without a holder. Not for a latch in use. */
COD_API void latchInit(Latch *latch);

/* Takes the latch shared, waiting while a writer holds it or waits for it. The 65536th reader waits until one leaves. Not re-entrant: a
 * reader that takes it again while a writer waits stops both. */
COD_API void latchShared(Latch *latch, CodUint32 type);
/* One attempt. */
COD_NODISCARD COD_API CodBool tryLatchShared(Latch *latch, CodUint32 type);
/* Gives up, and returns false, once the thread has slept more than `timeout` times in spin waits since the call. The count is of
 * spinSleepDefault's sleeps, 100 microseconds each. */
COD_NODISCARD COD_API CodBool latchSharedTimeout(Latch *latch, CodUint32 type, CodUint32 timeout);

/* Takes the latch exclusively for holderId, which is not LATCH_NO_HOLDER. */
COD_API void latchExclusive(Latch *latch, CodUint16 holderId, CodUint32 type);
/* The same with latchSharedTimeout's limit. A writer that gives up while it waits for readers lets new ones in again. */
COD_NODISCARD COD_API CodBool latchExclusiveTimeout(Latch *latch, CodUint16 holderId, CodUint32 type, CodUint32 timeout);
/* The second half of latchExclusive: waits until no reader is inside, then takes the latch. The caller has brought it to LATCH_IX. */
COD_API void latchIntentExclusive(Latch *latch, CodUint16 holderId, CodUint32 type);
/* A writer waits for the readers to leave; a snapshot. */
COD_API CodBool latchIsIntentX(const Latch *latch);
/* Leaves a latch taken by any of the above; nothing on one that nobody holds. */
COD_API void unLatch(Latch *latch, CodUint32 type);

/* As latchExclusive, but the holder may take the latch again, 255 times in all; one more is a panic. */
COD_API void reentrantLatchExclusive(Latch *latch, CodUint16 holderId, CodUint32 type);
/* Leaves once; the latch is free when each acquisition was left. xhid stays. Also leaves a latch held shared. */
COD_API void reentrantUnLatch(Latch *latch, CodUint32 type);

/* ---- Inline ---- */

/* The library's body under its second name. */
COD_API void spinLockExported(SpinLock *lock, CodUint32 type);

/* The thread sanitizer is told about locks by the library. */
#if !defined(COD_NO_INLINE) && !COD_WITH_TSAN
COD_API_INLINE CodBool spinTryLock(SpinLock *lock) {
    /* Reads before it exchanges, so that waiters share the line until the lock is free. */
    return __atomic_load_n(&lock->word, __ATOMIC_RELAXED) == 0 && __atomic_exchange_n(&lock->word, 1u, __ATOMIC_ACQUIRE) == 0;
}

COD_API_INLINE void spinLock(SpinLock *lock, CodUint32 type) {
    if (COD_UNLIKELY(!spinTryLock(lock))) {
        spinLockExported(lock, type);
    }
}

COD_API_INLINE void spinUnlock(SpinLock *lock) {
    if (lock != NULL) {
        __atomic_store_n(&lock->word, 0u, __ATOMIC_RELEASE);
    }
}
#endif

COD_END_DECLS

#if defined(COD_LOCK_ORDER_CHECK) && !defined(COD_NO_INLINE)
#include <vel_infra/lock/ani_lock_order.h>
#endif

#endif
