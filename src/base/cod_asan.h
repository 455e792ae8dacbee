#pragma once

// Tells the address sanitizer which bytes of our own pools may be touched; nothing in other builds.

#include <cstddef>

#include <vel_infra/base/cod_export.h>

#if COD_WITH_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace cod {

inline void asanPoison([[maybe_unused]] const void *start, [[maybe_unused]] std::size_t size) {
#if COD_WITH_ASAN
    __asan_poison_memory_region(start, size);
#endif
}

inline void asanUnpoison([[maybe_unused]] const void *start, [[maybe_unused]] std::size_t size) {
#if COD_WITH_ASAN
    __asan_unpoison_memory_region(start, size);
#endif
}

}  // namespace cod
