#include <vel_infra/utils/ani_clock.h>

#include <pthread.h>
#include <time.h>

#include "base/cod_fork_lock.h"

namespace {

// The C library's time zone is behind a lock that a fork's child inherits as it is. No thread is inside by our doing while the process
// forks, so that the child can tell the time.
constinit cod::ForkLock zoneLock;
constinit pthread_once_t forkHandlersOnce = PTHREAD_ONCE_INIT;

void lockBeforeFork(void) {
    zoneLock.beforeFork();
}

void unlockAfterFork(void) {
    zoneLock.afterFork();
}

void registerForkHandlers(void) {
    pthread_atfork(lockBeforeFork, unlockAfterFork, unlockAfterFork);
}

timespec readClock(clockid_t clock) {
    timespec now;
    clock_gettime(clock, &now);
    return now;
}

CodInt64 inMicroseconds(timespec time) {
    return CodInt64{time.tv_sec} * 1000000 + time.tv_nsec / 1000;
}

}  // namespace

CodDate codNow(void) {
    return inMicroseconds(readClock(CLOCK_REALTIME));
}

CodDate codSysdate(void) {
    return codNow() + CodInt64{codGetTimeZoneBias()} * 60000000;
}

CodInt16 codGetTimeZoneBias(void) {
    pthread_once(&forkHandlersOnce, registerForkHandlers);
    const time_t now = time(nullptr);
    tm local = {};
    zoneLock.lock();
    tzset();
    localtime_r(&now, &local);
    zoneLock.unlock();
    return static_cast<CodInt16>(local.tm_gmtoff / 60);
}

CodInstant codInstantNow(void) {
    const timespec now = readClock(CLOCK_MONOTONIC);
    return CodInstant{now.tv_sec} * 1000000000 + now.tv_nsec;
}

CodInt64 codGetMonotonicTime(void) {
    return inMicroseconds(readClock(CLOCK_MONOTONIC));
}
