#include <vel_infra/utils/ani_timer.h>

#include <signal.h>
#include <string.h>
#include <time.h>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/utils/ani_clock.h>

#include "base/cod_fork_lock.h"
#include "base/cod_relaxed.h"

using cod::loadRelaxed;
using cod::storeRelaxed;

namespace {

// The clocks that run, so that a fork's child, which does not have their threads, can be told so.
constinit CodTimer *runningTimers = nullptr;
constinit cod::ForkLock registryLock;
constinit pthread_once_t forkHandlersOnce = PTHREAD_ONCE_INIT;

void noteTime(CodTimer *timer) {
    storeRelaxed(&timer->timeZoneBias, codGetTimeZoneBias());
    storeRelaxed(&timer->seconds, CodInt64{time(nullptr)});
    storeRelaxed(&timer->monotonic, codGetMonotonicTime());
    storeRelaxed(&timer->now, codNow());
}

// The zone stays: a reader may have read the time already.
void forgetTime(CodTimer *timer) {
    storeRelaxed(&timer->now, 0);
    storeRelaxed(&timer->seconds, 0);
    storeRelaxed(&timer->monotonic, 0);
}

void lockBeforeFork(void) {
    registryLock.beforeFork();
}

void unlockAfterFork(void) {
    registryLock.afterFork();
}

void forgetAllInChild(void) {
    for (CodTimer *timer = runningTimers; timer != nullptr; timer = timer->next) {
        forgetTime(timer);
        timer->running = false;
    }
    runningTimers = nullptr;
    unlockAfterFork();
}

void registerForkHandlers(void) {
    pthread_atfork(lockBeforeFork, unlockAfterFork, forgetAllInChild);
}

void addToRegistry(CodTimer *timer) {
    pthread_once(&forkHandlersOnce, registerForkHandlers);
    registryLock.lock();
    timer->running = true;
    timer->next = runningTimers;
    runningTimers = timer;
    registryLock.unlock();
}

void removeFromRegistry(CodTimer *timer) {
    registryLock.lock();
    CodTimer **link = &runningTimers;
    while (*link != nullptr && *link != timer) {
        link = &(*link)->next;
    }
    if (*link != nullptr) {
        *link = timer->next;
    }
    timer->running = false;
    registryLock.unlock();
}

// Signals are for the program's own threads.
int createThread(CodTimer *timer) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const int fault = pthread_create(&timer->thread, nullptr, codTimerProc, timer);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return fault;
}

}  // namespace

CodResult codStartTimer(CodTimer *timer) {
    if (timer == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (timer->running) {
        return COD_SUCCESS;
    }
    storeRelaxed(&timer->stopping, false);
    // In the list before there is a time, and until there is none: a fork at any moment finds it.
    addToRegistry(timer);
    noteTime(timer);
    const int fault = createThread(timer);
    if (fault != 0) {
        forgetTime(timer);
        removeFromRegistry(timer);
        return codRaise(ERR_CMM_CREATE_THREAD, "cached clock", codSysErrDesc(static_cast<CodUint32>(fault)));
    }
    return COD_SUCCESS;
}

void codStopTimer(CodTimer *timer) {
    if (timer == nullptr || !timer->running) {
        return;
    }
    storeRelaxed(&timer->stopping, true);
    pthread_join(timer->thread, nullptr);
    forgetTime(timer);
    removeFromRegistry(timer);
}

void *codTimerProc(void *argument) {
    auto *timer = static_cast<CodTimer *>(argument);
    const timespec pause{.tv_sec = 0, .tv_nsec = 1000000};
    while (timer != nullptr && !loadRelaxed(&timer->stopping)) {
        noteTime(timer);
        nanosleep(&pause, nullptr);
    }
    return nullptr;
}

CodDate codTimerNow(const CodTimer *timer) {
    return timer != nullptr ? loadRelaxed(&timer->now) : 0;
}

CodDate codTimerLocalTime(const CodTimer *timer) {
    const CodDate now = codTimerNow(timer);
    return now > 0 ? now + CodInt64{loadRelaxed(&timer->timeZoneBias)} * 60000000 : 0;
}
