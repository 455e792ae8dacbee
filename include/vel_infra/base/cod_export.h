#ifndef VEL_INFRA_BASE_COD_EXPORT_H
#define VEL_INFRA_BASE_COD_EXPORT_H

/* Marks of declarations. GCC and Clang on Linux x86-64 are the compilers served. */

/* An exported function: C linkage comes from the header's extern "C" block, visibility from here. */
#define COD_API __attribute__((visibility("default")))

/* The result tells of failure and must be looked at. */
#define COD_NODISCARD __attribute__((warn_unused_result))

/* printf-style checking: the template is argument `fmt`, its first value argument `first` (0: a va_list). */
#define COD_PRINTF(fmt, first) __attribute__((format(printf, fmt, first)))

/* Never on a hot path: placed away from hot code, and branches that lead to it count as unlikely. */
#define COD_COLD __attribute__((cold, noinline))

#define COD_LIKELY(condition) __builtin_expect(!!(condition), 1)
#define COD_UNLIKELY(condition) __builtin_expect(!!(condition), 0)

/* An exported function whose hot path is also given inline: the header's body is used wherever the function is called by name, the
 * library's own body stands behind the exported name for foreign-function interfaces and function pointers. The inline body calls the
 * library's under a second name (mctxAlloc: mctxAllocExported), since a compiler takes a call of the first for a recursion. */
#define COD_API_INLINE extern __inline __attribute__((gnu_inline, always_inline))
/* A piece of such a body, not exported itself. */
#define COD_INLINE extern __inline __attribute__((gnu_inline, always_inline))
/* The second name, behind the definition of the function. GCC knows of a function compiled without exceptions that it throws none, and
 * wants its aliases to say so. */
#if defined(__clang__)
#define COD_SECOND_NAME(name) COD_API __attribute__((alias(#name)))
#else
#define COD_SECOND_NAME(name) COD_API __attribute__((nothrow, alias(#name)))
#endif

#if defined(__SANITIZE_ADDRESS__)
#define COD_WITH_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define COD_WITH_ASAN 1
#endif
#endif
#ifndef COD_WITH_ASAN
#define COD_WITH_ASAN 0
#endif

#if defined(__SANITIZE_THREAD__)
#define COD_WITH_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define COD_WITH_TSAN 1
#endif
#endif
#ifndef COD_WITH_TSAN
#define COD_WITH_TSAN 0
#endif

/* Public enumerations hold any 32-bit value, in C++ too: callers may pass one that has no name. */
#ifdef __cplusplus
#define COD_ENUM_BASE : int
#else
#define COD_ENUM_BASE
#endif

#ifdef __cplusplus
#define COD_BEGIN_DECLS extern "C" {
#define COD_END_DECLS }
#define COD_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define COD_BEGIN_DECLS
#define COD_END_DECLS
#define COD_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

#endif
