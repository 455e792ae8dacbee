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

/* The calling thread is about to wait for, and will then hold, a lock of `type` at `object`; it holds one already when it comes again. file
 * is kept as a pointer. */
COD_API void codLockOrderAcquire(const void *object, CodUint32 type, const char *file, CodUint32 line);
/* It holds one that it did not wait for. */
COD_API void codLockOrderHold(const void *object, CodUint32 type, const char *file, CodUint32 line);
/* It is about to leave the lock; nothing for one that is not noted. */
COD_API void codLockOrderRelease(const void *object);
/* How many pairs of types have been logged. */
COD_API CodUint32 codLockOrderInversions(void);

#if defined(COD_LOCK_ORDER_CHECK)
/* Macros, so that the place of the caller is known. call names the lock and its type as codLock_ and codType_: both are evaluated once. */
#define COD_ORDERED_TAKE(Lock, lock, type, call)                     \
    __extension__({                                                  \
        Lock *const codLock_ = (lock);                               \
        const CodUint32 codType_ = (type);                           \
        codLockOrderAcquire(codLock_, codType_, __FILE__, __LINE__); \
        call;                                                        \
    })
#define COD_ORDERED_TRY(Lock, lock, type, call)                       \
    __extension__({                                                   \
        Lock *const codLock_ = (lock);                                \
        const CodUint32 codType_ = (type);                            \
        const CodBool codIsTaken_ = call;                             \
        if (codIsTaken_) {                                            \
            codLockOrderHold(codLock_, codType_, __FILE__, __LINE__); \
        }                                                             \
        codIsTaken_;                                                  \
    })
#define COD_ORDERED_LEAVE(Lock, lock, call) \
    __extension__({                         \
        Lock *const codLock_ = (lock);      \
        codLockOrderRelease(codLock_);      \
        call;                               \
    })

#define spinLock(lock, type) COD_ORDERED_TAKE(SpinLock, lock, type, spinLock(codLock_, codType_))
#define spinTryLockTimes(lock, type, times) COD_ORDERED_TRY(SpinLock, lock, type, spinTryLockTimes(codLock_, codType_, times))
#define spinUnlock(lock) COD_ORDERED_LEAVE(SpinLock, lock, spinUnlock(codLock_))
#define latchShared(latch, type) COD_ORDERED_TAKE(Latch, latch, type, latchShared(codLock_, codType_))
#define tryLatchShared(latch, type) COD_ORDERED_TRY(Latch, latch, type, tryLatchShared(codLock_, codType_))
#define latchSharedTimeout(latch, type, timeout) COD_ORDERED_TRY(Latch, latch, type, latchSharedTimeout(codLock_, codType_, timeout))
#define latchExclusive(latch, holderId, type) COD_ORDERED_TAKE(Latch, latch, type, latchExclusive(codLock_, holderId, codType_))
#define latchExclusiveTimeout(latch, holderId, type, timeout) \
    COD_ORDERED_TRY(Latch, latch, type, latchExclusiveTimeout(codLock_, holderId, codType_, timeout))
#define latchIntentExclusive(latch, holderId, type) COD_ORDERED_TAKE(Latch, latch, type, latchIntentExclusive(codLock_, holderId, codType_))
#define reentrantLatchExclusive(latch, holderId, type) \
    COD_ORDERED_TAKE(Latch, latch, type, reentrantLatchExclusive(codLock_, holderId, codType_))
#define unLatch(latch, type) COD_ORDERED_LEAVE(Latch, latch, unLatch(codLock_, type))
#define reentrantUnLatch(latch, type) COD_ORDERED_LEAVE(Latch, latch, reentrantUnLatch(codLock_, type))
#endif

COD_END_DECLS

#endif
