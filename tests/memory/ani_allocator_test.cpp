#include <vel_infra/memory/ani_allocator.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <malloc.h>

#include <gtest/gtest.h>

#include "support/memory_support.h"

// Sanitizers otherwise end the process where the system would refuse a size.
extern "C" const char *__asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" const char *__tsan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

using memory_support::expectRaised;

class Allocator : public memory_support::CleanErrors {
protected:
    ~Allocator() override {
        codFailAllocAfter(-1);
    }
};

bool aligned(const void *ptr, std::uintptr_t to) {
    return reinterpret_cast<std::uintptr_t>(ptr) % to == 0;
}

TEST_F(Allocator, GivesAlignedMemory) {
    for (CodUint64 size : {1u, 7u, 8u, 4096u, 100000u}) {
        void *out = nullptr;
        ASSERT_EQ(codSysAlloc(size, &out), COD_SUCCESS);
        EXPECT_TRUE(aligned(out, 8));
        std::memset(out, 1, size);
        codSysFree(out);
        for (CodUint32 alignment = 8; alignment <= 1u << 16; alignment *= 2) {
            ASSERT_EQ(codSysAllocAligned(size, &out, alignment), COD_SUCCESS);
            EXPECT_TRUE(aligned(out, alignment)) << alignment;
            std::memset(out, 1, size);
            codSysFree(out);
            ASSERT_EQ(mallocAlign(&out, size, alignment, "test"), COD_SUCCESS);
            EXPECT_TRUE(aligned(out, alignment)) << alignment;
            std::memset(out, 1, size);
            freeAlign(out);
        }
        ASSERT_EQ(allocLargePageMem(&out, static_cast<CodUint32>(size)), COD_SUCCESS);
        EXPECT_TRUE(aligned(out, 2u << 20));
        std::memset(out, 1, size);
        freeLargePageMem(out);
        ASSERT_EQ(codSysAllocCb(nullptr, static_cast<CodUint32>(size), &out), COD_SUCCESS);
        std::memset(out, 1, size);
        codSysFreeCb(nullptr, out);
    }
    codSysFree(nullptr);
    freeAlign(nullptr);
    freeLargePageMem(nullptr);
    codSysFreeCb(nullptr, nullptr);
}

TEST_F(Allocator, RefusalsNameTheReasonAndGiveNothing) {
    const CodUint64 kHuge = UINT64_MAX / 4;
    const std::string kHugeText = std::to_string(kHuge);
    CodMemAlloc *system = codMemGetSystemAlloc();
    struct Case {
        const char *what;
        std::function<CodResult(void **)> call;
        CodError code;
        std::string text;
    } const kCases[] = {
        {"zero", [](void **out) { return codSysAlloc(0, out); }, 2, "internal error: alloc size is zero"},
        {"zero aligned", [](void **out) { return codSysAllocAligned(0, out, 64); }, 2, "internal error: alloc size is zero"},
        {"zero mallocAlign", [](void **out) { return mallocAlign(out, 0, 64, "x"); }, 2, "internal error: alloc size is zero"},
        {"zero record", [&](void **out) { return system->alloc(system, 0, out); }, 2, "internal error: alloc size is zero"},
        {"huge", [=](void **out) { return codSysAlloc(kHuge, out); }, 105,
         "out of memory to allocate system memory of size = " + kHugeText},
        {"huge aligned", [=](void **out) { return codSysAllocAligned(kHuge, out, 64); }, 105,
         "out of memory to allocate system memory of size = " + kHugeText},
        {"huge mallocAlign", [=](void **out) { return mallocAlign(out, kHuge, 64, "sort area"); }, 105,
         "out of memory to allocate sort area of size = " + kHugeText},
        {"all", [](void **out) { return codSysAlloc(UINT64_MAX, out); }, 105, "out of memory to allocate system memory of size = -1"},
        {"all mallocAlign", [](void **out) { return mallocAlign(out, UINT64_MAX, 4096, "x"); }, 105,
         "out of memory to allocate x of size = -1"},
        {"injected", [](void **out) { return codFailAllocAfter(0), codSysAlloc(33, out); }, 101,
         "cannot allocate 33 bytes for injected failure"},
        {"injected record", [&](void **out) { return codFailAllocAfter(0), system->alloc(system, 33, out); }, 101,
         "cannot allocate 33 bytes for injected failure"},
        {"null", [](void **) { return codSysAlloc(8, nullptr); }, 6, "null pointer"},
    };
    for (const Case &row : kCases) {
        SCOPED_TRACE(row.what);
        void *out = nullptr;
        void **given = std::string(row.what) == "null" ? nullptr : &out;
        out = &out;
        EXPECT_EQ(row.call(&out), COD_ERROR);
        if (given != nullptr) {
            EXPECT_EQ(out, nullptr);
        }
        expectRaised(row.code, row.text);
    }
    for (CodUint32 alignment : {0u, 1u, 2u, 4u, 12u, 24u, 0x80000001u}) {
        void *out = &out;
        EXPECT_EQ(codSysAllocAligned(8, &out, alignment), COD_ERROR);
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(codGetErrorCode(), static_cast<CodError>(ERR_CMM_INVALID_PARAMETER)) << alignment;
        codCleanError();
        EXPECT_EQ(mallocAlign(&out, 8, alignment, "x"), COD_ERROR);
        EXPECT_EQ(codGetErrorCode(), static_cast<CodError>(ERR_CMM_INVALID_PARAMETER)) << alignment;
        codCleanError();
    }
}

TEST_F(Allocator, NthAllocationFailsOnce) {
    for (CodInt32 n = 0; n < 5; n++) {
        codFailAllocAfter(n);
        for (CodInt32 i = 0; i < 8; i++) {
            void *out = nullptr;
            EXPECT_EQ(codSysAlloc(8, &out), i == n ? COD_ERROR : COD_SUCCESS) << n << " " << i;
            codSysFree(out);
        }
        codCleanError();
    }
}

std::string bytesOf(void *ptr, std::size_t size) {
    return {static_cast<char *>(ptr), size};
}

TEST_F(Allocator, ExtendKeepsTheBlockWhileItHoldsTheSize) {
    for (CodUint64 oldSize : {1u, 8u, 100u, 5000u}) {
        void *ptr = nullptr;
        ASSERT_EQ(codSysAlloc(oldSize, &ptr), COD_SUCCESS);
        std::memset(ptr, 'k', oldSize);
        void *before = ptr;
        std::size_t usable = malloc_usable_size(ptr);
        for (CodUint64 size : {CodUint64{0}, CodUint64{1}, oldSize, CodUint64{usable}}) {
            EXPECT_EQ(codSysExtend(&ptr, oldSize, size, false), COD_SUCCESS);
            EXPECT_EQ(ptr, before);
        }
        codFailAllocAfter(0);
        EXPECT_EQ(codSysExtend(&ptr, oldSize, usable + 1, true), COD_ERROR);
        EXPECT_EQ(codGetErrorCode(), static_cast<CodError>(ERR_CMM_ALLOC_MEMORY));
        codCleanError();
        EXPECT_EQ(codSysExtend(&ptr, oldSize, UINT64_MAX / 4, true), COD_ERROR);
        expectRaised(105, "out of memory to allocate system memory of size = " + std::to_string(UINT64_MAX / 4));
        EXPECT_EQ(ptr, before);
        ASSERT_EQ(codSysExtend(&ptr, oldSize, usable + 1, true), COD_SUCCESS);
        EXPECT_TRUE(aligned(ptr, 8));
        EXPECT_EQ(bytesOf(ptr, oldSize), std::string(oldSize, 'k'));
        std::memset(ptr, 'n', usable + 1);
        std::size_t grown = malloc_usable_size(ptr) + 1000;
        ASSERT_EQ(codSysExtend(&ptr, oldSize, grown, false), COD_SUCCESS);
        std::memset(ptr, 'n', grown);
        codSysFree(ptr);
    }
    void *none = nullptr;
    ASSERT_EQ(codSysExtend(&none, 0, 64, true), COD_SUCCESS);
    ASSERT_NE(none, nullptr);
    std::memset(none, 1, 64);
    codSysFree(none);
    EXPECT_EQ(codSysExtend(nullptr, 0, 64, true), COD_ERROR);
    expectRaised(6, "null pointer");
}

// A record with a larger one around it, that keeps account of what is out.
struct Counting {
    CodMemAlloc record;
    std::map<void *, CodUint32> out;
    int extended = 0;
};
CodResult countAlloc(CodMemAlloc *owner, CodUint32 size, void **out) {
    CodResult result = codSysAlloc(size, out);
    if (result == COD_SUCCESS) {
        reinterpret_cast<Counting *>(owner)->out[*out] = size;
    }
    return result;
}
CodResult countExtend(CodMemAlloc *owner, void **ptr, CodUint32 oldSize, CodUint32 newSize, CodBool keepOldData) {
    auto *self = reinterpret_cast<Counting *>(owner);
    self->extended++;
    self->out.erase(*ptr);
    CodResult result = codSysExtend(ptr, oldSize, newSize, keepOldData);
    self->out[*ptr] = newSize;
    return result;
}
void countFree(CodMemAlloc *owner, void *ptr) {
    EXPECT_EQ(reinterpret_cast<Counting *>(owner)->out.erase(ptr), 1u);
    codSysFree(ptr);
}

TEST_F(Allocator, RecordsGrowWithAndWithoutTheirOptionalFunctions) {
    for (bool hasExtend : {false, true}) {
        for (bool hasFree : {false, true}) {
            for (bool keep : {false, true}) {
                Counting owner{{countAlloc, hasExtend ? countExtend : nullptr, hasFree ? countFree : nullptr}, {}, 0};
                void *ptr = nullptr;
                ASSERT_EQ(owner.record.alloc(&owner.record, 40, &ptr), COD_SUCCESS);
                std::memset(ptr, 'o', 40);
                void *before = ptr;
                codFailAllocAfter(0);
                EXPECT_EQ(codMemExtend(&owner.record, &ptr, 40, 100000, keep), COD_ERROR);
                EXPECT_EQ(ptr, before);
                EXPECT_EQ(bytesOf(ptr, 40), std::string(40, 'o'));
                codCleanError();
                ASSERT_EQ(codMemExtend(&owner.record, &ptr, 40, 100000, keep), COD_SUCCESS);
                std::string head = bytesOf(ptr, keep ? 40 : 0);
                EXPECT_EQ(head, std::string(keep ? 40 : 0, 'o'));
                std::memset(ptr, 'n', 100000);
                EXPECT_EQ(owner.extended, hasExtend ? 2 : 0);
                EXPECT_EQ(owner.out.count(before), hasExtend || hasFree ? 0u : 1u) << "without free, the old block stays with its owner";
                for (auto &[block, size] : owner.out) {
                    codSysFree(block);
                }
            }
        }
    }
    EXPECT_EQ(codMemExtend(nullptr, nullptr, 0, 8, true), COD_ERROR);
    expectRaised(6, "null pointer");
}

TEST_F(Allocator, SystemRecordIsMadeOfTheSystemFunctions) {
    CodMemAlloc *system = codMemGetSystemAlloc();
    EXPECT_EQ(system, codMemGetSystemAlloc());
    EXPECT_TRUE(system->alloc == systemMemAlloc && system->extend == systemMemExtend && system->free == systemMemFree);
    void *ptr = nullptr;
    ASSERT_EQ(systemMemAlloc(nullptr, 10, &ptr), COD_SUCCESS);
    std::memcpy(ptr, "0123456789", 10);
    ASSERT_EQ(systemMemExtend(nullptr, &ptr, 10, 10000, true), COD_SUCCESS);
    EXPECT_EQ(bytesOf(ptr, 10), "0123456789");
    systemMemFree(nullptr, ptr);
}

TEST_F(Allocator, AllocatorWithContextPassesItOn) {
    std::vector<void *> seen;
    CodMemAllocator allocator = {&seen,
                                 [](void *ctx, CodUint32 size, void **buf) {
                                     EXPECT_EQ(size, 24u);
                                     static_cast<std::vector<void *> *>(ctx)->push_back(nullptr);
                                     return codSysAlloc(size, buf);
                                 },
                                 [](void *ctx, void *ptr) {
                                     static_cast<std::vector<void *> *>(ctx)->push_back(ptr);
                                     codSysFree(ptr);
                                 }};
    void *buf = nullptr;
    ASSERT_EQ(codAllocFromMem(&allocator, 24, &buf), COD_SUCCESS);
    codFreeToMem(&allocator, buf);
    EXPECT_EQ(seen, (std::vector<void *>{nullptr, buf}));
    allocator.pfnFree = nullptr;
    codFreeToMem(&allocator, &seen);
    EXPECT_EQ(codAllocFromMem(nullptr, 24, &buf), COD_ERROR);
    expectRaised(6, "null pointer");
}

}  // namespace
