#pragma once

// Fields that one thread writes while others read them, each for itself.

namespace cod {

template <class T>
inline T loadRelaxed(const volatile T *place) {
    return __atomic_load_n(place, __ATOMIC_RELAXED);
}

template <class T, class Value>
inline void storeRelaxed(volatile T *place, Value value) {
    __atomic_store_n(place, static_cast<T>(value), __ATOMIC_RELAXED);
}

}  // namespace cod
