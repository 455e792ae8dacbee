#include <vel_infra/lock/ani_lock.h>

#include <errno.h>
#include <time.h>

#include <vel_infra/utils/ani_clock.h>

CodInt32 codThreadLockInit(CodThreadLock *lock) {
    return lock != nullptr ? pthread_mutex_init(&lock->mutex, nullptr) : EINVAL;
}

CodInt32 codThreadLockDestory(CodThreadLock *lock) {
    return lock != nullptr ? pthread_mutex_destroy(&lock->mutex) : EINVAL;
}

CodInt32 codThreadLock(CodThreadLock *lock) {
    return lock != nullptr ? pthread_mutex_lock(&lock->mutex) : EINVAL;
}

CodInt32 codThreadTryLock(CodThreadLock *lock) {
    return lock != nullptr ? pthread_mutex_trylock(&lock->mutex) : EINVAL;
}

CodInt32 codThreadUnlock(CodThreadLock *lock) {
    return lock != nullptr ? pthread_mutex_unlock(&lock->mutex) : EINVAL;
}

CodInt32 codCondVarInit(CodCondVar *cond) {
    if (cond == nullptr) {
        return EINVAL;
    }
    pthread_condattr_t attributes;
    CodInt32 fault = pthread_condattr_init(&attributes);
    if (fault != 0) {
        return fault;
    }
    fault = pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    if (fault == 0) {
        fault = pthread_cond_init(&cond->cond, &attributes);
    }
    pthread_condattr_destroy(&attributes);
    return fault;
}

CodInt32 codCondVarDestroy(CodCondVar *cond) {
    return cond != nullptr ? pthread_cond_destroy(&cond->cond) : EINVAL;
}

CodInt32 codCondVarWait(CodCondVar *cond, CodThreadLock *lock) {
    return cond != nullptr && lock != nullptr ? pthread_cond_wait(&cond->cond, &lock->mutex) : EINVAL;
}

CodBool codCondVarWaitTimeout(CodCondVar *cond, CodThreadLock *lock, CodUint32 milliseconds) {
    return codCondVarWaitDeadline(cond, lock, codInstantNow() + CodInt64{milliseconds} * 1000000);
}

CodBool codCondVarWaitDeadline(CodCondVar *cond, CodThreadLock *lock, CodInstant deadline) {
    if (cond == nullptr || lock == nullptr) {
        return false;
    }
    if (deadline <= codInstantNow()) {
        return true;
    }
    const timespec until{.tv_sec = deadline / 1000000000, .tv_nsec = deadline % 1000000000};
    return pthread_cond_timedwait(&cond->cond, &lock->mutex, &until) == ETIMEDOUT;
}

CodInt32 codCondVarNotifyOne(CodCondVar *cond) {
    return cond != nullptr ? pthread_cond_signal(&cond->cond) : EINVAL;
}

CodInt32 codCondVarNotifyAll(CodCondVar *cond) {
    return cond != nullptr ? pthread_cond_broadcast(&cond->cond) : EINVAL;
}
