#define COD_NO_INLINE
#include <vel_infra/lock/ani_lock_order.h>

#include <algorithm>

#include <vel_infra/adr/ani_log_base.h>

#include "base/cod_thread.h"

namespace {

constexpr CodUint32 kTypes = __LOCK_TYPE_COUNT__;
constexpr CodUint32 kMostHeld = 32;

struct Place {
    const char *file;
    CodUint32 line;
};

struct HeldLock {
    const void *object;
    CodUint32 type;
    Place place;
};

// What the thread holds, oldest first.
struct HeldLocks {
    HeldLock locks[kMostHeld];
    CodUint32 count;
};

COD_THREAD_LOCAL(HeldLocks, heldLocks, {});

// Where the second type was first taken while the first one was held; a null file: never. Zero pages until the check is in use. The line is
// written before the file, which tells readers that it is there.
struct Edge {
    const char *file;
    CodUint32 line;
    CodBool isClaimed;
    CodBool isReported;
};
constinit Edge edges[kTypes][kTypes] = {};
constinit CodUint32 inversions = 0;

CodUint32 rowOf(CodUint32 type) {
    return type < kTypes ? type : CodUint32{LOCK_TYPE_OTHERS};
}

const char *baseName(const char *file) {
    const char *slash = __builtin_strrchr(file, '/');
    return slash != nullptr ? slash + 1 : file;
}

COD_COLD void report(const HeldLock &held, CodUint32 type, Place place, const Edge &reverse) {
    __atomic_fetch_add(&inversions, 1, __ATOMIC_RELAXED);
    const char *first = getSpinLockAttr(held.type)->name;
    const char *second = getSpinLockAttr(type)->name;
    COD_LOG_ERROR(
        "lock order inverted: \"%s\" taken at %s:%u while \"%s\" is held since %s:%u; \"%s\" was taken at %s:%u while \"%s\" was held",
        second, baseName(place.file), place.line, first, baseName(held.place.file), held.place.line, first, baseName(reverse.file),
        reverse.line, second);
}

void noteEdge(const HeldLock &held, CodUint32 type, Place place) {
    Edge &edge = edges[held.type][type];
    if (!__atomic_load_n(&edge.isClaimed, __ATOMIC_RELAXED) && !__atomic_exchange_n(&edge.isClaimed, true, __ATOMIC_RELAXED)) {
        edge.line = place.line;
        __atomic_store_n(&edge.file, place.file, __ATOMIC_SEQ_CST);
    }
    // Of two threads that note opposite edges at once, one sees the other's.
    Edge &reverse = edges[type][held.type];
    if (__atomic_load_n(&reverse.file, __ATOMIC_SEQ_CST) != nullptr) {
        Edge &lower = held.type < type ? edge : reverse;
        if (!__atomic_exchange_n(&lower.isReported, true, __ATOMIC_RELAXED)) {
            report(held, type, place, reverse);
        }
    }
}

bool isHeld(const HeldLocks &held, const void *object) {
    return std::any_of(held.locks, held.locks + held.count, [object](const HeldLock &lock) { return lock.object == object; });
}

}  // namespace

void codLockOrderAcquire(const void *object, CodUint32 type, const char *file, CodUint32 line) {
    const HeldLocks &held = heldLocks();
    const CodUint32 row = rowOf(type);
    // A holder that comes again does not wait.
    const CodUint32 others = isHeld(held, object) ? 0 : held.count;
    for (CodUint32 i = 0; i < others; i++) {
        if (held.locks[i].type != row) {
            noteEdge(held.locks[i], row, {file, line});
        }
    }
    codLockOrderHold(object, type, file, line);
}

void codLockOrderHold(const void *object, CodUint32 type, const char *file, CodUint32 line) {
    HeldLocks &held = heldLocks();
    if (held.count < kMostHeld) {
        held.locks[held.count++] = {object, rowOf(type), {file, line}};
    }
}

void codLockOrderRelease(const void *object) {
    HeldLocks &held = heldLocks();
    CodUint32 place = held.count;
    while (place > 0 && held.locks[place - 1].object != object) {
        place--;
    }
    if (place == 0) {
        return;
    }
    for (; place < held.count; place++) {
        held.locks[place - 1] = held.locks[place];
    }
    held.count--;
}

CodUint32 codLockOrderInversions(void) {
    return __atomic_load_n(&inversions, __ATOMIC_RELAXED);
}
