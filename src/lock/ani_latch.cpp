#include <vel_infra/lock/ani_latch.h>

#include <immintrin.h>
#include <time.h>

#include "base/cod_thread.h"

namespace {

// Written only when a waiter sleeps, so neighbours on one cache line do not slow each other.
constinit SpinLockAttr g_SpinLockAttrs[__LOCK_TYPE_COUNT__] = {
#define LOCK_TYPE(index, name, text) {text, 128, spinSleepDefault, 0},
#include <vel_infra/lock/ani_lock_types.def>
#undef LOCK_TYPE
};

COD_THREAD_LOCAL(CodUint32, gTlsSpinSleeps, {0});

SpinLockAttr &attrOf(CodUint32 type) {
    return g_SpinLockAttrs[type < __LOCK_TYPE_COUNT__ ? type : CodUint32{LOCK_TYPE_OTHERS}];
}

// Reads before it exchanges, so that waiters share the line until the lock is free.
inline bool tryTake(SpinLock *lock) {
    return __atomic_load_n(&lock->word, __ATOMIC_RELAXED) == 0 && __atomic_exchange_n(&lock->word, 1u, __ATOMIC_ACQUIRE) == 0;
}

void pauseTimes(CodUint64 times) {
    for (CodUint64 i = 0; i < times; i++) {
        _mm_pause();
    }
}

COD_COLD void spinWait(SpinLock *lock, CodUint32 type) {
    const SpinLockAttr &attr = attrOf(type);
    for (;;) {
        if (tryTake(lock)) {
            return;
        }
        // 64 bits: the back-off doubles past any 32-bit bound.
        for (CodUint64 backOff = 1; backOff <= attr.spinCount; backOff *= 2) {
            pauseTimes(backOff);
            if (tryTake(lock)) {
                return;
            }
        }
        spinSleep(type);
    }
}

}  // namespace

void spinLock(SpinLock *lock, CodUint32 type) {
    if (COD_UNLIKELY(!tryTake(lock))) {
        spinWait(lock, type);
    }
}

CodBool spinTryLock(SpinLock *lock) {
    return tryTake(lock);
}

CodBool spinTryLockTimes(SpinLock *lock, CodUint32 type, CodUint32 times) {
    const CodUint64 longest = attrOf(type).spinCount;
    CodUint64 backOff = 1;
    for (CodUint32 attempt = 0; attempt < times; attempt++) {
        if (tryTake(lock)) {
            return true;
        }
        if (attempt + 1 < times) {
            pauseTimes(backOff);
            backOff = backOff * 2 <= longest ? backOff * 2 : 1;
        }
    }
    return false;
}

void spinUnlock(SpinLock *lock) {
    if (lock != nullptr) {
        __atomic_store_n(&lock->word, 0u, __ATOMIC_RELEASE);
    }
}

const SpinLockAttr *getSpinLockAttr(CodUint32 type) {
    return &attrOf(type);
}

void spinSleep(CodUint32 type) {
    SpinLockAttr &attr = attrOf(type);
    attr.sleep();
    __atomic_fetch_add(&attr.sleepTimes, 1, __ATOMIC_RELAXED);
}

void spinSleepDefault(void) {
    const timespec pause{.tv_sec = 0, .tv_nsec = 100000};
    nanosleep(&pause, nullptr);
    gTlsSpinSleeps()++;
}

CodUint32 spinGetTlsSleeps(void) {
    return gTlsSpinSleeps();
}
