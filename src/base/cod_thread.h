#pragma once

// Thread-local data of the library.
//
// A library may be opened late (dlopen), when the memory that the loader keeps for thread-local data is nearly used up. So nothing here
// is placed in it by force (the initial-exec model, which would bind all thread-local data of the library to it): the data is reached
// through descriptors, which cost nothing for a library that was there from the start and are set up per thread at first use otherwise.
// Loaders before glibc 2.40 do not preserve vector registers during that set-up, although the compiler relies on it; behind a call to a
// function of its own, whose body the compiler may not look into, no vector register is alive.
//
//   COD_THREAD_LOCAL(CodUint32, sleepCount, {0})      defines the variable and CodUint32 &sleepCount()

#if defined(__clang__)
#define COD_OPAQUE [[gnu::noinline]]
#else
#define COD_OPAQUE [[gnu::noipa]]
#endif

#define COD_THREAD_LOCAL(Type, name, ...)                    \
    COD_OPAQUE Type &name() {                                \
        static constinit thread_local Type data __VA_ARGS__; \
        return data;                                         \
    }                                                        \
    static_assert(true)
