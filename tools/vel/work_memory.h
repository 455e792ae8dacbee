#ifndef VEL_WORK_MEMORY_H
#define VEL_WORK_MEMORY_H

#include <vel_infra/collection/ani_hashmap.h>
#include <vel_infra/memory/ani_allocator.h>
#include <vel_infra/memory/ani_memory.h>

namespace vel {

// The pool that a command works from: blocks of 64 KiB that are taken from the system sixteen at a time and never given back before
// the end. One thread.
class WorkMemory {
public:
    static constexpr CodUint32 kBlockSize = 65536;

    WorkMemory() = default;
    ~WorkMemory();
    WorkMemory(const WorkMemory &) = delete;
    WorkMemory &operator=(const WorkMemory &) = delete;

    // Must succeed before pool() is used. Errors: those of mpoolCreate.
    CodResult init();
    MemoryPool *pool() {
        return &pool_;
    }

private:
    MemoryPool pool_ = {};
    bool isCreated_ = false;
};

// Bytes from the system allocator.
class SystemBuffer {
public:
    SystemBuffer() = default;
    ~SystemBuffer() {
        codSysFree(memory_);
    }
    SystemBuffer(const SystemBuffer &) = delete;
    SystemBuffer &operator=(const SystemBuffer &) = delete;

    // Once. Errors: those of codSysAlloc.
    CodResult init(CodUint64 size) {
        return codSysAlloc(size, &memory_);
    }
    template <class T>
    T *as() const {
        return static_cast<T *>(memory_);
    }

private:
    void *memory_ = nullptr;
};

// A map whose entries are carved from a context and end with it. Its buckets come from the system allocator.
// Errors: those of codHMapInit.
CodResult initMapOfCarvedEntries(CodHashMap *map, CodHashKeyCompare keyCompare, CodHashCalc hashCalc);
// Frees the buckets and looks at no entry, so the context may have ended before.
void releaseMapOfCarvedEntries(CodHashMap *map);

}  // namespace vel

#endif
