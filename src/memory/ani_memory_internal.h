#pragma once

// Shared by the pool's operations and the functions that look into it.

#include <cstring>

#include <vel_infra/memory/ani_memory.h>

namespace cod {

// Holds a pool's lock, where it has one.
class PoolLock {
public:
    explicit PoolLock(MemoryPool *pool) : pool_(pool->isLockFree ? nullptr : pool) {
        if (pool_ != nullptr) {
            spinLock(&pool_->lock, LOCK_TYPE_MEMORY_POOL);
        }
    }
    ~PoolLock() {
        if (pool_ != nullptr) {
            spinUnlock(&pool_->lock);
        }
    }
    PoolLock(const PoolLock &) = delete;
    PoolLock &operator=(const PoolLock &) = delete;

private:
    MemoryPool *pool_;
};

// Fields that a report reads while their context's thread works: atomic wherever they are aligned, which a block size that is a
// multiple of 8 makes sure of.
template <class T>
inline T loadShared(const void *field) {
    if (reinterpret_cast<CodUint64>(field) % alignof(T) == 0) {
        return __atomic_load_n(static_cast<const T *>(field), __ATOMIC_RELAXED);
    }
    T value;
    std::memcpy(&value, field, sizeof value);
    return value;
}

template <class T>
inline void storeShared(void *field, T value) {
    if (reinterpret_cast<CodUint64>(field) % alignof(T) == 0) {
        __atomic_store_n(static_cast<T *>(field), value, __ATOMIC_RELAXED);
    } else {
        std::memcpy(field, &value, sizeof value);
    }
}

inline CodUint8 *fieldAddress(void *record, std::size_t offset) {
    return static_cast<CodUint8 *>(record) + offset;
}

inline CodUint64 blockStride(CodUint32 blockSize) {
    return CodUint64{blockSize} + sizeof(MpoolBlockCtrl);
}

inline MpoolBlockCtrl *blockAt(void *data, CodUint32 blockSize, CodUint64 index) {
    return reinterpret_cast<MpoolBlockCtrl *>(static_cast<CodUint8 *>(data) + index * blockStride(blockSize));
}

inline CodUint64 blocksIn(const MpoolBuffer *buffer, CodUint32 blockSize) {
    return (buffer->size - sizeof(MpoolBuffer)) / blockStride(blockSize);
}

}  // namespace cod
