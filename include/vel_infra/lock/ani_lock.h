#ifndef VEL_INFRA_LOCK_ANI_LOCK_H
#define VEL_INFRA_LOCK_ANI_LOCK_H

/* POSIX mutexes and condition variables under the library's names. Results are the POSIX ones: 0, or an error number such as EBUSY; a
 * null pointer is EINVAL. Nothing here raises errors. Waits with a limit run on the monotonic clock, so that setting the wall clock makes
 * them neither shorter nor longer. A wait may end without a notification, as POSIX has it: check what was waited for. */

#include <pthread.h>

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

/* Opaque. A zeroed one is free. Not re-entrant; left only by the thread that took it. */
typedef struct CodThreadLock {
    pthread_mutex_t mutex;
} CodThreadLock;
COD_STATIC_ASSERT(sizeof(CodThreadLock) <= 512, "clients reserve room for it");

/* Opaque. To be initialised. */
typedef struct CodCondVar {
    pthread_cond_t cond;
} CodCondVar;
COD_STATIC_ASSERT(sizeof(CodCondVar) <= 512, "clients reserve room for it");

COD_API CodInt32 codThreadLockInit(CodThreadLock *lock);
COD_API CodInt32 codThreadLockDestory(CodThreadLock *lock);
COD_API CodInt32 codThreadLock(CodThreadLock *lock);
/* EBUSY: held. */
COD_API CodInt32 codThreadTryLock(CodThreadLock *lock);
COD_API CodInt32 codThreadUnlock(CodThreadLock *lock);

COD_API CodInt32 codCondVarInit(CodCondVar *cond);
COD_API CodInt32 codCondVarDestroy(CodCondVar *cond);
/* Leaves the lock, which the caller holds, waits, and takes it again; so do the two below. */
COD_API CodInt32 codCondVarWait(CodCondVar *cond, CodThreadLock *lock);
/* True: timed out. */
COD_API CodBool codCondVarWaitTimeout(CodCondVar *cond, CodThreadLock *lock, CodUint32 milliseconds);
/* The deadline is on the clock of codInstantNow. True: timed out. A deadline that is not after now is true at once, the lock untouched. */
COD_API CodBool codCondVarWaitDeadline(CodCondVar *cond, CodThreadLock *lock, CodInstant deadline);
COD_API CodInt32 codCondVarNotifyOne(CodCondVar *cond);
COD_API CodInt32 codCondVarNotifyAll(CodCondVar *cond);

COD_END_DECLS

#endif
