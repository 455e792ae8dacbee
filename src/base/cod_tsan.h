#pragma once

// Telling the thread sanitizer about locks made of atomics, so that it knows who holds them and in which order they are taken. What is
// done between the two marks of a step is hidden from it. Nothing in other builds.

#include <vel_infra/base/cod_export.h>

#if COD_WITH_TSAN
#include <sanitizer/tsan_interface.h>
#define COD_TSAN(call) call
#else
#define COD_TSAN(call) ((void)0)
#endif

namespace cod {

enum class LockMode { Exclusive, Shared };

#if COD_WITH_TSAN
constexpr unsigned tsanFlags(LockMode mode) {
    return __tsan_mutex_linker_init | (mode == LockMode::Shared ? __tsan_mutex_read_lock : 0);
}
#endif

// Around taking a lock by waiting.
inline void noteBeforeLock([[maybe_unused]] void *lock, [[maybe_unused]] LockMode mode) {
    COD_TSAN(__tsan_mutex_pre_lock(lock, tsanFlags(mode)));
}
inline void noteAfterLock([[maybe_unused]] void *lock, [[maybe_unused]] LockMode mode) {
    COD_TSAN(__tsan_mutex_post_lock(lock, tsanFlags(mode), 0));
}

// Around an attempt.
inline void noteBeforeTry([[maybe_unused]] void *lock, [[maybe_unused]] LockMode mode) {
    COD_TSAN(__tsan_mutex_pre_lock(lock, tsanFlags(mode) | __tsan_mutex_try_lock));
}
inline bool noteAfterTry([[maybe_unused]] void *lock, [[maybe_unused]] LockMode mode, bool isTaken) {
    COD_TSAN(__tsan_mutex_post_lock(lock, tsanFlags(mode) | __tsan_mutex_try_lock | (isTaken ? 0 : __tsan_mutex_try_lock_failed), 0));
    return isTaken;
}

// Around leaving it.
inline void noteBeforeUnlock([[maybe_unused]] void *lock, [[maybe_unused]] LockMode mode) {
    COD_TSAN(__tsan_mutex_pre_unlock(lock, mode == LockMode::Shared ? __tsan_mutex_read_lock : 0));
}
inline void noteAfterUnlock([[maybe_unused]] void *lock, [[maybe_unused]] LockMode mode) {
    COD_TSAN(__tsan_mutex_post_unlock(lock, mode == LockMode::Shared ? __tsan_mutex_read_lock : 0));
}

}  // namespace cod
