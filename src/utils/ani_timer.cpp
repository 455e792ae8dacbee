#include <vel_infra/utils/ani_timer.h>

#include <signal.h>
#include <string.h>
#include <time.h>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/utils/ani_clock.h>

namespace {

// The clocks that run, so that a fork's child, which does not have their threads, can be told so.
constinit CodTimer *runningTimers = nullptr;
constinit pthread_mutex_t registryLock = PTHREAD_MUTEX_INITIALIZER;
constinit pthread_once_t forkHandlersOnce = PTHREAD_ONCE_INIT;

template <class T>
void store(T *field, T value) {
    __atomic_store_n(field, value, __ATOMIC_RELAXED);
}

template <class T>
T load(const T *field) {
    return __atomic_load_n(field, __ATOMIC_RELAXED);
}

void noteTime(CodTimer *timer) {
    store(&timer->timeZoneBias, codGetTimeZoneBias());
    store(&timer->seconds, CodInt64{time(nullptr)});
    store(&timer->monotonic, codGetMonotonicTime());
    store(&timer->now, codNow());
}

void forgetTime(CodTimer *timer) {
    store(&timer->now, CodDate{0});
    store(&timer->seconds, CodInt64{0});
    store(&timer->monotonic, CodInt64{0});
    store(&timer->timeZoneBias, CodInt16{0});
}

void lockRegistry(void) {
    pthread_mutex_lock(&registryLock);
}

void unlockRegistry(void) {
    pthread_mutex_unlock(&registryLock);
}

void forgetAllInChild(void) {
    for (CodTimer *timer = runningTimers; timer != nullptr; timer = timer->next) {
        forgetTime(timer);
        timer->running = false;
    }
    runningTimers = nullptr;
    unlockRegistry();
}

void registerForkHandlers(void) {
    pthread_atfork(lockRegistry, unlockRegistry, forgetAllInChild);
}

void addToRegistry(CodTimer *timer) {
    pthread_once(&forkHandlersOnce, registerForkHandlers);
    lockRegistry();
    timer->running = true;
    timer->next = runningTimers;
    runningTimers = timer;
    unlockRegistry();
}

void removeFromRegistry(CodTimer *timer) {
    lockRegistry();
    CodTimer **link = &runningTimers;
    while (*link != nullptr && *link != timer) {
        link = &(*link)->next;
    }
    if (*link != nullptr) {
        *link = timer->next;
    }
    timer->running = false;
    unlockRegistry();
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
    store(&timer->stopping, false);
    noteTime(timer);
    addToRegistry(timer);
    const int fault = createThread(timer);
    if (fault != 0) {
        removeFromRegistry(timer);
        forgetTime(timer);
        return codRaise(ERR_CMM_CREATE_THREAD, "cached clock", codSysErrDesc(static_cast<CodUint32>(fault)));
    }
    return COD_SUCCESS;
}

void codStopTimer(CodTimer *timer) {
    if (timer == nullptr || !timer->running) {
        return;
    }
    store(&timer->stopping, true);
    pthread_join(timer->thread, nullptr);
    removeFromRegistry(timer);
    forgetTime(timer);
}

void *codTimerProc(void *argument) {
    auto *timer = static_cast<CodTimer *>(argument);
    const timespec pause{.tv_sec = 0, .tv_nsec = 1000000};
    while (timer != nullptr && !load(&timer->stopping)) {
        noteTime(timer);
        nanosleep(&pause, nullptr);
    }
    return nullptr;
}

CodDate codTimerNow(const CodTimer *timer) {
    return timer != nullptr ? load(&timer->now) : 0;
}

CodDate codTimerLocalTime(const CodTimer *timer) {
    const CodDate now = codTimerNow(timer);
    return now > 0 ? now + CodInt64{load(&timer->timeZoneBias)} * 60000000 : 0;
}
