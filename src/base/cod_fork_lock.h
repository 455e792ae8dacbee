#pragma once

// A mutex that is free again in a fork's child: it is taken before the process forks and left on both sides. Handlers of the program that
// run in between, on the forking thread, find it taken by themselves.

#include <pthread.h>

namespace cod {

class ForkLock {
public:
    constexpr ForkLock() = default;

    // The POSIX result.
    int lock() {
        return isOwnFork() ? 0 : pthread_mutex_lock(&mutex_);
    }
    void unlock() {
        if (!isOwnFork()) {
            pthread_mutex_unlock(&mutex_);
        }
    }

    // What the handlers of pthread_atfork do: before the fork, and behind it in parent and child.
    void beforeFork() {
        pthread_mutex_lock(&mutex_);
        __atomic_store_n(&forker_, pthread_self(), __ATOMIC_RELAXED);
        __atomic_store_n(&isForking_, true, __ATOMIC_RELEASE);
    }
    void afterFork() {
        __atomic_store_n(&isForking_, false, __ATOMIC_RELAXED);
        pthread_mutex_unlock(&mutex_);
    }

private:
    bool isOwnFork() const {
        return __atomic_load_n(&isForking_, __ATOMIC_ACQUIRE) &&
               pthread_equal(__atomic_load_n(&forker_, __ATOMIC_RELAXED), pthread_self()) != 0;
    }

    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_t forker_ = 0;
    bool isForking_ = false;
};

}  // namespace cod
