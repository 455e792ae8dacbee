#define COD_NO_INLINE
#include <vel_infra/lock/ani_latch.h>

#include <immintrin.h>
#include <time.h>

#include <algorithm>

#include <vel_infra/adr/ani_blackbox.h>

#include "base/cod_relaxed.h"
#include "base/cod_thread.h"
#include "base/cod_tsan.h"

using cod::LockMode;

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

CodInt64 sleepsOf(CodUint32 type) {
    return cod::loadRelaxed(&g_SpinLockAttrs[type].sleepTimes);
}

// ---- Spin locks ----

// Reads before it exchanges, so that waiters share the line until the lock is free.
inline bool tryTake(SpinLock *lock) {
    return cod::loadRelaxed(&lock->word) == 0 && __atomic_exchange_n(&lock->word, 1u, __ATOMIC_ACQUIRE) == 0;
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

inline void take(SpinLock *lock, CodUint32 type) {
    if (COD_UNLIKELY(!tryTake(lock))) {
        spinWait(lock, type);
    }
}

inline void leave(SpinLock *lock) {
    __atomic_store_n(&lock->word, 0u, __ATOMIC_RELEASE);
}

bool tryTakeTimes(SpinLock *lock, CodUint32 type, CodUint32 times) {
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

// ---- Latches ----

// Waiters read the fields while the holder of the spin lock writes them.
template <class T>
inline T read(const volatile T &field) {
    return cod::loadRelaxed(&field);
}
template <class T, class Value>
inline void write(volatile T &field, Value value) {
    cod::storeRelaxed(&field, value);
}

constexpr CodUint16 kMostReaders = UINT16_MAX;
constexpr CodUint8 kMostReentries = UINT8_MAX;

// A wait for a latch: one pause at a time, a sleep after spinCount of them. One with a limit gives up by the thread's sleeps.
class LatchWait {
public:
    explicit LatchWait(CodUint32 type) : type_(type) {}
    LatchWait(CodUint32 type, CodUint32 timeout) : type_(type), hasLimit_(true), limit_(timeout), sleepsBefore_(gTlsSpinSleeps()) {}

    // False: given up.
    bool pause() {
        _mm_pause();
        if (++counter_ >= attrOf(type_).spinCount) {
            spinSleep(type_);
            counter_ = 0;
        }
        return !hasLimit_ || gTlsSpinSleeps() - sleepsBefore_ <= limit_;
    }

private:
    CodUint32 type_;
    CodUint32 counter_ = 0;
    bool hasLimit_ = false;
    CodUint32 limit_ = 0;
    CodUint32 sleepsBefore_ = 0;
};

// False: the wait gave up.
bool waitForWriters(const Latch *latch, LatchWait *wait) {
    do {
        if (!wait->pause()) {
            return false;
        }
    } while (read(latch->status) > LATCH_S);
    return true;
}

// Of the functions called enter... and leave..., each works under the latch's spin lock and gives that back.

bool enterShared(Latch *latch) {
    const CodUint16 readers = read(latch->sharedCount);
    const bool isOpen = read(latch->status) <= LATCH_S && readers != kMostReaders;
    if (COD_LIKELY(isOpen)) {
        write(latch->status, LATCH_S);
        write(latch->sharedCount, readers + 1);
    }
    leave(&latch->lock);
    return isOpen;
}

COD_COLD bool waitShared(Latch *latch, CodUint32 type, LatchWait wait) {
    for (;;) {
        take(&latch->lock, type);
        if (enterShared(latch)) {
            return true;
        }
        if (!waitForWriters(latch, &wait)) {
            return false;
        }
    }
}

COD_COLD bool waitShared(Latch *latch, CodUint32 type) {
    return waitShared(latch, type, LatchWait(type));
}

inline void grant(Latch *latch, CodUint16 holderId) {
    write(latch->status, LATCH_X);
    write(latch->latchXTimes, read(latch->latchXTimes) + 1);
    write(latch->xhid, holderId);
}

// What a writer finds. Only when the latch is closed does it have to look again.
enum class Found { Idle, Readers, Closed };

inline Found enterExclusive(Latch *latch, CodUint16 holderId) {
    Found found = Found::Closed;
    const CodUint8 status = read(latch->status);
    if (COD_LIKELY(status == LATCH_IDLE)) {
        grant(latch, holderId);
        found = Found::Idle;
    } else if (status == LATCH_S) {
        write(latch->status, LATCH_IX);
        found = Found::Readers;
    }
    leave(&latch->lock);
    return found;
}

// The latch is in LATCH_IX by the caller's doing.
COD_COLD bool waitForReaders(Latch *latch, CodUint16 holderId, CodUint32 type, LatchWait *wait) {
    bool hasTime = true;
    while (read(latch->sharedCount) != 0 && hasTime) {
        hasTime = wait->pause();
    }
    take(&latch->lock, type);
    const bool isGranted = read(latch->sharedCount) == 0;
    if (isGranted) {
        grant(latch, holderId);
    } else {
        write(latch->status, LATCH_S);
    }
    leave(&latch->lock);
    return isGranted;
}

COD_COLD bool waitExclusive(Latch *latch, CodUint16 holderId, CodUint32 type, LatchWait wait) {
    for (;;) {
        take(&latch->lock, type);
        const Found found = enterExclusive(latch, holderId);
        if (found != Found::Closed) {
            return found == Found::Idle || waitForReaders(latch, holderId, type, &wait);
        }
        if (!waitForWriters(latch, &wait)) {
            return false;
        }
    }
}

COD_COLD void waitExclusive(Latch *latch, CodUint16 holderId, CodUint32 type) {
    waitExclusive(latch, holderId, type, LatchWait(type));
}

COD_COLD void waitForReaders(Latch *latch, CodUint16 holderId, CodUint32 type) {
    LatchWait wait(type);
    waitForReaders(latch, holderId, type, &wait);
}

// Where the thread sanitizer is told of a latch: not where the spin lock is, whose own steps it sees in between.
inline void *markOf(Latch *latch) {
    return const_cast<CodUint16 *>(&latch->xhid);
}

// What a holder leaves: only itself can change LATCH_X, and readers never see it.
LockMode heldMode(const Latch *latch) {
    return read(latch->status) == LATCH_X ? LockMode::Exclusive : LockMode::Shared;
}

inline void leaveShared(Latch *latch) {
    const CodUint16 readers = read(latch->sharedCount);
    if (COD_LIKELY(readers != 0)) {
        write(latch->sharedCount, readers - 1);
        // A waiting writer sees the count of readers itself: the status stays LATCH_IX.
        if (readers == 1 && read(latch->status) == LATCH_S) {
            write(latch->status, LATCH_IDLE);
        }
    }
    leave(&latch->lock);
}

inline void leaveExclusive(Latch *latch) {
    write(latch->status, LATCH_IDLE);
    write(latch->xhid, LATCH_NO_HOLDER);
    write(latch->latchXTimes, read(latch->latchXTimes) - 1);
    leave(&latch->lock);
}

inline void leaveLatch(Latch *latch, LockMode mode) {
    return mode == LockMode::Exclusive ? leaveExclusive(latch) : leaveShared(latch);
}

COD_COLD void waitAndLeave(Latch *latch, CodUint32 type, LockMode mode) {
    take(&latch->lock, type);
    leaveLatch(latch, mode);
}

// The holder comes again.
bool tryReenter(Latch *latch, CodUint16 holderId, CodUint32 type) {
    take(&latch->lock, type);
    const CodUint8 times = read(latch->latchXTimes);
    const bool isHolder = read(latch->status) == LATCH_X && read(latch->xhid) == holderId;
    if (isHolder && times != kMostReentries) {
        write(latch->latchXTimes, times + 1);
    }
    leave(&latch->lock);
    if (COD_UNLIKELY(isHolder && times == kMostReentries)) {
        codPanic("latch of type \"%s\" is taken %u times by its holder %u", attrOf(type).name, CodUint32{times}, CodUint32{holderId});
    }
    return isHolder;
}

}  // namespace

void spinLock(SpinLock *lock, CodUint32 type) {
    cod::noteBeforeLock(lock, LockMode::Exclusive);
    take(lock, type);
    cod::noteAfterLock(lock, LockMode::Exclusive);
}
COD_SECOND_NAME(spinLock) void spinLockExported(SpinLock *lock, CodUint32 type);

CodBool spinTryLock(SpinLock *lock) {
    cod::noteBeforeTry(lock, LockMode::Exclusive);
    return cod::noteAfterTry(lock, LockMode::Exclusive, tryTake(lock));
}

CodBool spinTryLockTimes(SpinLock *lock, CodUint32 type, CodUint32 times) {
    cod::noteBeforeTry(lock, LockMode::Exclusive);
    return cod::noteAfterTry(lock, LockMode::Exclusive, tryTakeTimes(lock, type, times));
}

void spinUnlock(SpinLock *lock) {
    if (lock != nullptr) {
        cod::noteBeforeUnlock(lock, LockMode::Exclusive);
        leave(lock);
        cod::noteAfterUnlock(lock, LockMode::Exclusive);
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

CodUint32 spinReport(SpinReportRow *rows, CodUint32 capacity) {
    SpinReportRow all[__LOCK_TYPE_COUNT__];
    CodUint32 count = 0;
    for (CodUint32 type = 0; type < __LOCK_TYPE_COUNT__; type++) {
        const CodInt64 sleeps = sleepsOf(type);
        if (sleeps != 0) {
            all[count++] = {type, g_SpinLockAttrs[type].name, sleeps};
        }
    }
    std::sort(all, all + count, [](const SpinReportRow &left, const SpinReportRow &right) {
        return left.sleepTimes != right.sleepTimes ? left.sleepTimes > right.sleepTimes : left.type < right.type;
    });
    if (rows != nullptr) {
        std::copy_n(all, std::min(count, capacity), rows);
    }
    return count;
}

// ---- Latches ----

void latchInit(Latch *latch) {
    *latch = {};
    latch->xhid = LATCH_NO_HOLDER;
}

void latchShared(Latch *latch, CodUint32 type) {
    cod::noteBeforeLock(markOf(latch), LockMode::Shared);
    // What waits is behind a call, so that the usual way needs no frame; so below.
    if (COD_UNLIKELY(!tryTake(&latch->lock) || !enterShared(latch))) {
        waitShared(latch, type);
    }
    cod::noteAfterLock(markOf(latch), LockMode::Shared);
}

CodBool tryLatchShared(Latch *latch, CodUint32 type) {
    cod::noteBeforeTry(markOf(latch), LockMode::Shared);
    take(&latch->lock, type);
    return cod::noteAfterTry(markOf(latch), LockMode::Shared, enterShared(latch));
}

CodBool latchSharedTimeout(Latch *latch, CodUint32 type, CodUint32 timeout) {
    cod::noteBeforeTry(markOf(latch), LockMode::Shared);
    return cod::noteAfterTry(markOf(latch), LockMode::Shared, waitShared(latch, type, LatchWait(type, timeout)));
}

void latchExclusive(Latch *latch, CodUint16 holderId, CodUint32 type) {
    cod::noteBeforeLock(markOf(latch), LockMode::Exclusive);
    const Found found = COD_LIKELY(tryTake(&latch->lock)) ? enterExclusive(latch, holderId) : Found::Closed;
    if (COD_UNLIKELY(found == Found::Closed)) {
        waitExclusive(latch, holderId, type);
    } else if (COD_UNLIKELY(found == Found::Readers)) {
        waitForReaders(latch, holderId, type);
    }
    cod::noteAfterLock(markOf(latch), LockMode::Exclusive);
}

CodBool latchExclusiveTimeout(Latch *latch, CodUint16 holderId, CodUint32 type, CodUint32 timeout) {
    cod::noteBeforeTry(markOf(latch), LockMode::Exclusive);
    return cod::noteAfterTry(markOf(latch), LockMode::Exclusive, waitExclusive(latch, holderId, type, LatchWait(type, timeout)));
}

void latchIntentExclusive(Latch *latch, CodUint16 holderId, CodUint32 type) {
    cod::noteBeforeLock(markOf(latch), LockMode::Exclusive);
    waitForReaders(latch, holderId, type);
    cod::noteAfterLock(markOf(latch), LockMode::Exclusive);
}

CodBool latchIsIntentX(const Latch *latch) {
    return read(latch->status) == LATCH_IX;
}

void unLatch(Latch *latch, CodUint32 type) {
    const LockMode mode = heldMode(latch);
    cod::noteBeforeUnlock(markOf(latch), mode);
    if (COD_LIKELY(tryTake(&latch->lock))) {
        leaveLatch(latch, mode);
    } else {
        waitAndLeave(latch, type, mode);
    }
    cod::noteAfterUnlock(markOf(latch), mode);
}

void reentrantLatchExclusive(Latch *latch, CodUint16 holderId, CodUint32 type) {
    if (!tryReenter(latch, holderId, type)) {
        latchExclusive(latch, holderId, type);
    }
}

void reentrantUnLatch(Latch *latch, CodUint32 type) {
    const LockMode mode = heldMode(latch);
    take(&latch->lock, type);
    const CodUint8 times = static_cast<CodUint8>(read(latch->latchXTimes) - 1);
    if (mode == LockMode::Exclusive && times != 0) {
        write(latch->latchXTimes, times);
        return leave(&latch->lock);
    }
    cod::noteBeforeUnlock(markOf(latch), mode);
    if (mode == LockMode::Exclusive) {
        write(latch->latchXTimes, times);
        write(latch->status, LATCH_IDLE);
        leave(&latch->lock);
    } else {
        leaveShared(latch);
    }
    cod::noteAfterUnlock(markOf(latch), mode);
}
