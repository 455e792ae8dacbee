#ifndef VEL_INFRA_LOCK_ANI_LOCK_ORDER_H
#define VEL_INFRA_LOCK_ANI_LOCK_ORDER_H

/* The check of lock orders, for debug builds.
 *
 * With COD_LOCK_ORDER_CHECK defined before the first include, spin locks and latches taken by name note which types a thread holds while
 * it takes another. When two types were met in both orders, in whichever threads, the inversion is logged once at level ERROR:
 *
 *   lock order inverted: "LRU" taken at cache.c:31 while "VM" is held since cache.c:28; "VM" was taken at pool.c:75 while "LRU" was held
 *
 * 1. Orders are by type: two locks of one type have none.
 * 2. A lock that was got by an attempt without waiting, or with a timeout, cannot make a deadlock by itself; what is taken while it is held
 *    can. spinTryLock names no type and is not noted.
 * 3. A thread's first 32 locks are noted; what it takes beyond them is not checked.
 * 4. A lock must be left by the thread that took it, in code compiled with the check, or it stays noted. */

#include <vel_infra/lock/ani_latch.h>

COD_BEGIN_DECLS

/* The calling thread is about to wait for, and will then hold, a lock of `type` at `object`. file is kept as a pointer. */
COD_API void codLockOrderAcquire(const void *object, CodUint32 type, const char *file, CodUint32 line);
/* It holds one that it did not wait for. */
COD_API void codLockOrderHold(const void *object, CodUint32 type, const char *file, CodUint32 line);
/* It is about to leave the lock; nothing for one that is not noted. */
COD_API void codLockOrderRelease(const void *object);
/* How many pairs of types have been logged. */
COD_API CodUint32 codLockOrderInversions(void);

#if defined(COD_LOCK_ORDER_CHECK)
/* Macros, so that the place of the caller is known. */
static inline CodBool codLockOrderHoldIf(CodBool isTaken, const void *object, CodUint32 type, const char *file, CodUint32 line) {
    if (isTaken) {
        codLockOrderHold(object, type, file, line);
    }
    return isTaken;
}

#define COD_LOCK_ORDER_ACQUIRE(object, type) codLockOrderAcquire((object), (type), __FILE__, __LINE__)
#define COD_LOCK_ORDER_HOLD_IF(isTaken, object, type) codLockOrderHoldIf((isTaken), (object), (type), __FILE__, __LINE__)

#define spinLock(lock, type) (COD_LOCK_ORDER_ACQUIRE(lock, type), spinLock(lock, type))
#define spinTryLockTimes(lock, type, times) COD_LOCK_ORDER_HOLD_IF(spinTryLockTimes(lock, type, times), lock, type)
#define spinUnlock(lock) (codLockOrderRelease(lock), spinUnlock(lock))
#define latchShared(latch, type) (COD_LOCK_ORDER_ACQUIRE(latch, type), latchShared(latch, type))
#define tryLatchShared(latch, type) COD_LOCK_ORDER_HOLD_IF(tryLatchShared(latch, type), latch, type)
#define latchSharedTimeout(latch, type, timeout) COD_LOCK_ORDER_HOLD_IF(latchSharedTimeout(latch, type, timeout), latch, type)
#define latchExclusive(latch, holderId, type) (COD_LOCK_ORDER_ACQUIRE(latch, type), latchExclusive(latch, holderId, type))
#define latchExclusiveTimeout(latch, holderId, type, timeout) \
    COD_LOCK_ORDER_HOLD_IF(latchExclusiveTimeout(latch, holderId, type, timeout), latch, type)
#define reentrantLatchExclusive(latch, holderId, type) (COD_LOCK_ORDER_ACQUIRE(latch, type), reentrantLatchExclusive(latch, holderId, type))
#define unLatch(latch, type) (codLockOrderRelease(latch), unLatch(latch, type))
#define reentrantUnLatch(latch, type) (codLockOrderRelease(latch), reentrantUnLatch(latch, type))
#endif

COD_END_DECLS

#endif
