#include <vel_infra/memory/ani_memory.h>
#include <vel_infra/memory/ani_stack.h>

#include <malloc.h>
#include <algorithm>
#include <atomic>
#include <cstring>
#include <set>

#include <vel_infra/adr/ani_alert.h>
#include <vel_infra/utils/ani_clock.h>

#include "support/memory_support.h"

// Sanitizers otherwise end the process where the system would refuse a size.
extern "C" const char *__asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" const char *__tsan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

using namespace memory_support;

std::vector<std::string> alerts;

// An extend callback's buffer: its size, and how far behind the allocation's start it lies.
CodUint64 extendSize = 16 + 24 + 256, extendShift = 0;
void *extendGave;
CodResult extendBySize(void *, void **buffer, CodUint64 *size) {
    *size = extendSize;
    CodResult result = codSysAlloc(extendSize + extendShift, &extendGave);
    *buffer = static_cast<CodUint8 *>(extendGave) + extendShift;
    return result;
}

class Memory : public CleanState {
protected:
    Memory() {
        alerts.clear();
        aniSetAlertCallback(
            [](CodUint32, const char *text, CodBool isRaise) { alerts.push_back(std::string(isRaise ? "+" : "-") + text); });
    }
    ~Memory() override {
        codFailAllocAfter(-1);
        aniSetAlertCallback(nullptr);
        mpoolDestroy(&pool_);
    }

    void create(CodUint32 blockCount, CodUint32 blockSize) {
        ASSERT_EQ(mpoolCreate(blockCount, blockSize, MEM_RSRC_DC_POOL, "test pool", &pool_), COD_SUCCESS);
    }
    MemoryContext *context() {
        MemoryContext *made = nullptr;
        EXPECT_EQ(mctxCreate(&pool_, &made), COD_SUCCESS);
        return made;
    }
    static CodUint8 *take(MemoryContext *context, CodUint32 size) {
        void *out = nullptr;
        EXPECT_EQ(mctxAlloc(context, size, &out), COD_SUCCESS);
        return static_cast<CodUint8 *>(out);
    }

    MemoryPool pool_{};
};
using MemoryDeathTest = Memory;

// ---- System memory ----

TEST_F(Memory, SystemMemoryIsAlignedAndFreed) {
    CodMemAlloc *system = codMemGetSystemAlloc();
    for (CodUint32 size : {1u, 8u, 100000u}) {
        for (CodUint32 alignment = 8; alignment <= 1u << 22; alignment *= 2) {
            void *blocks[6] = {};
            const CodUint32 kAlignments[] = {alignment, alignment, 2u << 20, 8, 8, 8};
            EXPECT_EQ(codSysAllocAligned(size, &blocks[0], alignment) | mallocAlign(&blocks[1], size, alignment, "test"), COD_SUCCESS);
            EXPECT_EQ(allocLargePageMem(&blocks[2], size) | codSysAllocCb(nullptr, size, &blocks[3]), COD_SUCCESS);
            EXPECT_EQ(codSysAlloc(size, &blocks[4]) | system->alloc(nullptr, size, &blocks[5]), COD_SUCCESS);
            for (int i = 0; i < 6; i++) {
                ASSERT_TRUE(blocks[i] != nullptr && reinterpret_cast<CodUint64>(blocks[i]) % kAlignments[i] == 0) << i << " " << alignment;
                std::memset(blocks[i], 1, size);
            }
            codSysFree(blocks[0]);
            freeAlign(blocks[1]);
            freeLargePageMem(blocks[2]);
            codSysFreeCb(nullptr, blocks[3]);
            codSysFree(blocks[4]);
            system->free(nullptr, blocks[5]);
        }
    }
}

TEST_F(Memory, RefusedSystemMemoryNamesTheReason) {
    const CodUint64 kHuge = UINT64_MAX / 4;
    const std::string kZero = "internal error: alloc size is zero", kSystem = "out of memory to allocate system memory of size = ";
    void *out = nullptr;
    expectRefusals({
        {[&] { return codSysAlloc(0, &out); }, ERR_CMM_INTERNAL_ERROR, kZero},
        {[&] { return codSysAllocAligned(0, &out, 64); }, ERR_CMM_INTERNAL_ERROR, kZero},
        {[&] { return mallocAlign(&out, 0, 64, "x"); }, ERR_CMM_INTERNAL_ERROR, kZero},
        {[&] { return codSysAlloc(kHuge, &out); }, ERR_CMM_OUT_OF_MEMORY, kSystem + std::to_string(kHuge)},
        {[&] { return codSysAllocAligned(UINT64_MAX, &out, 64); }, ERR_CMM_OUT_OF_MEMORY, kSystem + "-1"},
        {[&] { return mallocAlign(&out, UINT64_MAX, 64, "x"); }, ERR_CMM_OUT_OF_MEMORY, "out of memory to allocate x of size = -1"},
        {[&] { return codFailAllocAfter(0), codSysAlloc(33, &out); }, ERR_CMM_ALLOC_MEMORY,
         "cannot allocate 33 bytes for injected failure"},
        {[&] { return codSysAllocAligned(8, &out, 0); }, ERR_CMM_OUT_OF_MEMORY},
        {[&] { return codSysAllocAligned(8, &out, 4); }, ERR_CMM_OUT_OF_MEMORY},
        {[&] { return mallocAlign(&out, 8, 24, "x"); }, ERR_CMM_OUT_OF_MEMORY},
        {[&] { return codSysAlloc(8, nullptr); }, ERR_CMM_POINTER_NULL},
        {[&] { return codSysExtend(nullptr, 0, 8, true); }, ERR_CMM_POINTER_NULL},
        {[&] { return codMemExtend(nullptr, &out, 0, 8, true); }, ERR_CMM_POINTER_NULL},
        {[&] { return codAllocFromMem(nullptr, 8, &out); }, ERR_CMM_POINTER_NULL},
    });
    EXPECT_EQ(out, nullptr);
    codFailAllocAfter(2);
    for (int i = 0; i < 5; i++) {
        EXPECT_EQ(codSysAlloc(8, &out), i == 2 ? COD_ERROR : COD_SUCCESS) << "only the third fails";
        codSysFree(out);
    }
}

std::set<void *> live;

TEST_F(Memory, BlocksGrowWithAndWithoutTheOptionalFunctions) {
    auto allocLive = [](CodMemAlloc *, CodUint32 size, void **out) {
        CodResult result = codSysAlloc(size, out);
        live.insert(*out);
        live.erase(nullptr);  // what a failure gives
        return result;
    };
    auto freeLive = [](CodMemAlloc *, void *block) { live.erase(block), codSysFree(block); };
    for (CodMemAlloc owner :
         {CodMemAlloc{systemMemAlloc, systemMemExtend, systemMemFree}, {allocLive, nullptr, freeLive}, {allocLive, nullptr, nullptr}}) {
        void *ptr = nullptr;
        ASSERT_EQ(owner.alloc(&owner, 40, &ptr), COD_SUCCESS);
        std::memset(ptr, 'o', 40);
        void *before = ptr;
        expectRefusals({{[&] { return codFailAllocAfter(0), codMemExtend(&owner, &ptr, 40, 100000, true); }, ERR_CMM_ALLOC_MEMORY}});
        EXPECT_EQ(ptr, before);
        ASSERT_EQ(codMemExtend(&owner, &ptr, 40, 100000, true), COD_SUCCESS);
        EXPECT_EQ(std::string(static_cast<char *>(ptr), 40), std::string(40, 'o'));
        ASSERT_EQ(codMemExtend(&owner, &ptr, 100000, 300000, false), COD_SUCCESS);
        std::memset(ptr, 'n', 300000);
        if (owner.extend != nullptr) {
            live.insert(ptr);
        }
        EXPECT_EQ(live.size(), owner.free == nullptr ? 3u : 1u) << "without free, old blocks stay with their owner";
        std::for_each(live.begin(), live.end(), codSysFree);
        live.clear();
    }
    void *ptr = nullptr;
    ASSERT_EQ(codSysExtend(&ptr, 0, 64, true), COD_SUCCESS);
    void *before = ptr;
    std::size_t usable = malloc_usable_size(ptr);
    EXPECT_EQ(codSysExtend(&ptr, 64, usable, false), COD_SUCCESS);
    expectRefusals({{[&] { return codSysExtend(&ptr, 64, UINT64_MAX / 4, true); }, ERR_CMM_OUT_OF_MEMORY}});
    EXPECT_EQ(ptr, before) << "it held the size, or stays when it cannot grow";
    EXPECT_EQ(codSysExtend(&ptr, 64, usable + 1, true), COD_SUCCESS);
    std::memset(ptr, 1, usable + 1);
    codSysFree(ptr);

    void *freed = nullptr;
    auto free = [](void *ctx, void *block) { *static_cast<void **>(ctx) = block, codSysFree(block); };
    CodMemAllocator allocator = {&freed, codSysAllocCb, free};
    ASSERT_EQ(codAllocFromMem(&allocator, 24, &ptr), COD_SUCCESS);
    codFreeToMem(&allocator, ptr);
    EXPECT_EQ(freed, ptr);
}

TEST_F(Memory, StackAgreesWithAModelOverRandomPushesAndPops) {
    for (CodUint32 capacity : {0u, 1u, 8u, 9u, 100u, 4096u}) {
        Random random(capacity + 1);
        std::vector<CodUint64> area(capacity / 8 + 1);
        auto *base = reinterpret_cast<CodUint8 *>(area.data());
        CodStack stack;
        ASSERT_EQ(codStackInit(&stack, base, capacity), COD_SUCCESS);
        CodUint64 top = 0, peak = 0;
        std::vector<CodUint64> marks;
        for (int step = 0; step < 3000; step++) {
            const CodUint32 kSizes[] = {0, 1, 7, 8, 9, random.below(200), capacity, capacity + 1, 0x7FFFFFFFu, 0xFFFFFFF9u, 0xFFFFFFFFu};
            CodUint32 size = random.pick(kSizes);
            CodUint64 end = top + (CodUint64{size} + 7) / 8 * 8;
            void *out = &out;
            if (random.oneIn(4)) {
                marks.push_back(top);
                CodUint64 mark = random.pick(marks);
                codStackPop(&stack, static_cast<CodUint32>(mark));  // one above the top is ignored
                top = std::min(top, mark);
            } else if (end <= capacity) {
                ASSERT_EQ(codStackPush(&stack, size, &out), COD_SUCCESS) << size;
                ASSERT_EQ(out, base + top);
                top = end;
                peak = std::max(peak, top);
            } else {
                ASSERT_EQ(codStackPush(&stack, size, &out), COD_ERROR) << size;
                ASSERT_EQ(out, nullptr);
                expectRaised(109, "work stack overflow, try to push " + std::to_string(static_cast<CodInt32>(size)) + " bytes");
            }
            ASSERT_TRUE(stack.top == top && codStackMark(&stack) == top && stack.peak == peak);
        }
    }
}

// ---- Quota ----

TEST_F(Memory, ReservationsNeverPassTheLimit) {
    struct Row {
        CodUint64 limit, used, bytes;
        bool fits;
    };
    MemRsrc account;
    for (auto [limit, used, bytes, fits] : {Row{0, 0, 0, true},
                                            {0, 0, 1, false},
                                            {100, 0, 100, true},
                                            {100, 60, 40, true},
                                            {100, 60, 41, false},
                                            {50, 60, 1, false},
                                            {100, 60, UINT64_MAX, false},
                                            {UINT64_MAX, 60, UINT64_MAX, false},
                                            {UINT64_MAX, 60, UINT64_MAX - 60, true}}) {
        aniMemRsrcInit(&account);
        EXPECT_EQ(aniMemRsrcAllocSpaQuota(&account, MEM_RSRC_DC_POOL, used), COD_SUCCESS) << "no limit at first";
        aniMemRsrcSetLimit(&account, MEM_RSRC_DC_POOL, limit);
        EXPECT_EQ(aniMemRsrcAllocSpaQuota(&account, MEM_RSRC_DC_POOL, bytes), fits ? COD_SUCCESS : COD_ERROR) << limit << " " << bytes;
        EXPECT_EQ(aniMemRsrcUsed(&account, MEM_RSRC_DC_POOL), used + (fits ? bytes : 0));
        EXPECT_EQ(aniMemRsrcUsed(&account, MEM_RSRC_APP_POOL), 0u);
        if (!fits) {
            expectRaised(ERR_CMM_ALLOC_MEM_QUOTA);
        }
    }
    auto unknown = static_cast<MemRsrcType>(10);
    aniMemRsrcSetLimit(&account, unknown, 0);
    aniMemRsrcFreeSpaQuota(&account, unknown, 1);
    EXPECT_EQ(aniMemRsrcUsed(&account, unknown), 0u);
    EXPECT_EQ(std::string(aniMemRsrcTypeName(MEM_RSRC_VM_BUFFER)) + aniMemRsrcTypeName(unknown), "VM BUFFERUNKNOWN");
    expectRefusals({{[&] { return aniMemRsrcAllocSpaQuota(&account, unknown, 1); }, ERR_CMM_INVALID_PARAMETER},
                    {[] { return aniMemRsrcAllocSpaQuota(nullptr, MEM_RSRC_OTHERS, 1); }, ERR_CMM_POINTER_NULL}});
}

// ---- Pools ----

TEST_F(Memory, ArgumentsAreChecked) {
    const std::string longest(67, 'n'), tooLong(68, 'n');
    alignas(16) CodUint8 area[4096] = {};
    MemoryPool small{}, other{};
    create(4, 256);
    ASSERT_EQ(mpoolCreate(1, sizeof(MemoryContext) - 1, MEM_RSRC_OTHERS, longest.c_str(), &small), COD_SUCCESS);
    EXPECT_EQ(small.name, longest);
    MemoryContext *ctx = context(), *made = nullptr;
    void *out = nullptr;
    CodUint32 size = 0;
    CodText text = {};
    MemRsrcType type = MEM_RSRC_OTHERS;
    alignas(8) CodUint8 stackArea[16];
    CodStack stack{};
    expectRefusals({
        {[&] { return mpoolCreate(2, 256, type, tooLong.c_str(), &other); }, ERR_CMM_COPY_DATA},
        {[&] { return mpoolAttach(area, sizeof(area), 256, type, tooLong.c_str(), nullptr, &other); }, ERR_CMM_COPY_DATA},
        {[&] { return mpoolCreate(0xFFFFFFFFu, 0xFFFFFFFFu, type, "x", &other); }, ERR_CMM_OUT_OF_MEMORY},
        {[&] { return mpoolAttach(area + 4, 1000, 256, type, "x", nullptr, &other); }, ERR_CMM_INVALID_PARAMETER},
        {[&] { return mpoolAttach(area, 15, 256, type, "x", nullptr, &other); }, ERR_CMM_INVALID_PARAMETER},
        {[&] { return mctxCreate(&small, &made); }, ERR_CMM_BLOCK_SIZE_ILLEGAL},
        {[&] { return codStackInit(&stack, stackArea + 4, 8); }, ERR_CMM_INVALID_PARAMETER},
        {[&] { return codStackInit(&stack, nullptr, 8); }, ERR_CMM_POINTER_NULL},
        {[&] { return codStackPush(nullptr, 8, &out); }, ERR_CMM_POINTER_NULL},
        {[&] { return mpoolCreate(2, 256, type, nullptr, &other); }, ERR_CMM_POINTER_NULL},
        {[&] { return mpoolAttach(nullptr, 1000, 256, type, "x", nullptr, &other); }, ERR_CMM_POINTER_NULL},
        {[&] { return mctxCreate(nullptr, &made); }, ERR_CMM_POINTER_NULL},
        {[&] { return mctxCreate(&pool_, nullptr); }, ERR_CMM_POINTER_NULL},
        {[&] { return mctxAlloc(nullptr, 8, &out); }, ERR_CMM_POINTER_NULL},
        {[&] { return mctxAlloc(ctx, 8, nullptr); }, ERR_CMM_POINTER_NULL},
        {[&] { return mctxAllocMax(nullptr, 8, &size, &out); }, ERR_CMM_POINTER_NULL},
        {[&] { return mctxExtend(nullptr); }, ERR_CMM_POINTER_NULL},
        {[&] { return mctxReserveBlocks(nullptr, 1); }, ERR_CMM_POINTER_NULL},
        {[&] { return mctxCopyText(ctx, nullptr, &text); }, ERR_CMM_POINTER_NULL},
        {[&] { return mpoolVerify(nullptr); }, ERR_CMM_POINTER_NULL},
        {[&] { return mpoolReport(&pool_, nullptr); }, ERR_CMM_POINTER_NULL},
    });
    EXPECT_FALSE(mctxTryAlloc(nullptr, 8, &out) || mctxTryAlloc(ctx, 8, nullptr) || mctxTryCreate(nullptr, &made) ||
                 mctxTryCreate(&pool_, nullptr) || mctxTryCreate(&small, &made) || mpoolTryAllocBlock(&pool_, nullptr, true, false));
    mctxTruncate(nullptr, &out);
    mctxTruncate(ctx, nullptr);
    mctxDestroy(nullptr);
    mpoolDestroy(nullptr);
    mpoolFreeBlocks(&pool_, nullptr);
    mpoolDestroy(&small);
    EXPECT_EQ(codGetErrorStackDepth(), 0u);
    mctxDestroy(ctx);
    EXPECT_EQ(mpoolVerify(&pool_), COD_SUCCESS);
    EXPECT_EQ(pool_.freeBlocks.count, 4u);
}

TEST_F(Memory, ExhaustionAlertsOnceUntilClearedOrFiveMinutesPass) {
    const std::string text = "|test pool memory pool is exhausted";
    std::vector<std::string> expected;
    create(3, 256);
    pool_.rsvdBlocks = 1;
    MemoryContext *a = context(), *b = context(), *refused = nullptr;
    auto refuse = [&](bool alerted, const char *why) {
        expectRefusals({{[&] { return mctxCreate(&pool_, &refused); }, ERR_CMM_ALLOC_MPOOL_BLOCK, "no free block in test pool"}});
        EXPECT_EQ(alerts, expected) << why;
        EXPECT_EQ(pool_.alerted, alerted) << why;
    };
    expected.push_back("+" + text);
    refuse(true, "the first");
    EXPECT_NEAR(static_cast<double>(codNow() - pool_.alertTime), 0, 1e8);
    refuse(true, "one is outstanding");
    mctxDestroy(a);
    expected.push_back("-" + text);
    a = context();
    refuse(false, "more than the reserve was free, but the last one is not five minutes old");
    pool_.alertTime -= 299 * 1000000LL;
    refuse(false, "nor yet");
    pool_.alertTime -= 2 * 1000000LL;
    expected.push_back("+" + text);
    refuse(true, "five minutes passed");
    pool_.alertTime -= 301 * 1000000LL;
    refuse(true, "one is outstanding");
    MpoolBlockCtrl *taken = nullptr;
    ASSERT_TRUE(mpoolTryAllocBlock(&pool_, &taken, true, false));
    mctxDestroy(b);
    refuse(true, "only the reserve is free");
    mctxDestroy(a);
    EXPECT_FALSE(pool_.alerted);
    EXPECT_EQ(alerts.size(), 4u);
}

TEST_F(Memory, AnUnusableExtensionIsRefused) {
    create(1, 256);
    mpoolRegisterExtend(&pool_, extendBySize);
    MemoryContext *ctx = context();
    struct Row {
        CodUint64 size, shift;
        CodError code;
    };
    for (auto [size, shift, code] : {Row{8, 0, ERR_CMM_INVALID_PARAMETER},
                                     {1000, 4, ERR_CMM_INVALID_PARAMETER},
                                     {16, 0, ERR_CMM_ALLOC_MPOOL_BLOCK},
                                     {16 + 24 + 255, 0, ERR_CMM_ALLOC_MPOOL_BLOCK}}) {
        extendSize = size;
        extendShift = shift;
        expectRefusals({{[&] { return mctxExtend(ctx); }, code}});
        EXPECT_EQ(pool_.blockCount, 1u);
        EXPECT_EQ(mpoolVerify(&pool_), COD_SUCCESS) << codGetErrorMsg2();
        if (code == ERR_CMM_INVALID_PARAMETER) {
            codSysFree(extendGave);  // a refused buffer stays the callback's
        }
    }
    extendSize = 16 + 24 + 256;
    extendShift = 0;
    EXPECT_EQ(mctxExtend(ctx), COD_SUCCESS);
    EXPECT_EQ(pool_.blockCount, 2u);
}

TEST_F(Memory, FailedSystemAllocationLeavesPoolAndContextUsable) {
    for (CodInt32 n = 0, failures = 1; failures > 0; n++) {
        MemoryPool pool{};
        MemoryContext *ctx = nullptr;
        std::string source(200, 's');
        CodText text = {source.data(), 200, 7}, large = {source.data(), 257, 0};
        void *out = nullptr;
        CodUint32 size = 0;
        const std::function<CodResult()> kCalls[] = {
            [&] { return mpoolCreate(1, 256, MEM_RSRC_OTHERS, "x", &pool); },
            [&] { return mpoolRegisterExtend(&pool, extendBySize), mctxCreate(&pool, &ctx); },
            [&] { return mctxAlloc(ctx, 256, &out); },
            [&] { return mctxAlloc(ctx, 200, &out); },
            [&] { return mctxCopyText(ctx, &text, &text); },
            [&] { return mctxExtend(ctx); },
            [&] { return mctxReserveBlocks(ctx, 3); },
            [&] { return mctxAllocMax(ctx, 256, &size, &out); },
        };
        failures = 0;
        codFailAllocAfter(n);
        for (const auto &call : kCalls) {
            if (call() != COD_SUCCESS) {
                failures++;
                expectRaised(ERR_CMM_ALLOC_MEMORY);
                EXPECT_TRUE(pool.blockCount == 0 || mpoolVerify(&pool) == COD_SUCCESS);
                EXPECT_EQ(call(), COD_SUCCESS);
            }
        }
        codFailAllocAfter(-1);
        EXPECT_EQ(failures, n < 8);
        expectRefusals({{[&] { return mctxCopyText(ctx, &large, &text); }, ERR_CMM_ALLOC_MCTX_MEM}});
        EXPECT_TRUE(text.str != source.data() && std::string(text.str, text.len) == source && text.aux == 7);
        mctxDestroy(ctx);
        EXPECT_TRUE(pool.blockCount == 8 && pool.freeBlocks.count == 8 && mpoolVerify(&pool) == COD_SUCCESS);
        mpoolDestroy(&pool);
    }
}

TEST_F(Memory, VerifyFindsWhatIsWrong) {
    create(300, 128);
    take(context(), 128);
    auto block = [blocks = pool_.buffer->data](CodUint32 index) { return reinterpret_cast<MpoolBlockCtrl *>(blocks + index * 152); };
    MemoryPool other{};
    const std::pair<const char *, std::function<void()>> kDamages[] = {
        {"magic number", [&] { block(0)->magicNum ^= 1; }},
        {"magic number", [&] { block(299)->magicNum ^= 1; }},
        {"continuity code", [&] { block(1)->continuityCode++; }},
        {"continuity code", [&] { block(256)->continuityCode++; }},
        {"another pool", [&] { block(1)->pool = &other; }},
        {"another pool", [&] { block(100)->pool = nullptr; }},
        {"has the type 1", [&] { block(100)->type = 1; }},
        {"has the type 3", [&] { block(1)->type = 3; }},
        {"instead of 299", [&] { pool_.freeBlocks.count++; }},
        {"instead of 297", [&] { pool_.freeBlocks.count--; }},
        {"the free list holds 99", [&] { block(100)->next = nullptr; }},
        {"holds more than", [&] { block(299)->next = block(2); }},
        {"leads out of the pool", [&] { block(299)->next = reinterpret_cast<MpoolBlockCtrl *>(block(5)->block); }},
        {"its tail", [&] { pool_.freeBlocks.tail = block(50); }},
        {"instead of 301", [&] { pool_.blockCount++; }},
    };
    for (const auto &[what, damage] : kDamages) {
        EXPECT_EQ(mpoolVerify(&pool_), COD_SUCCESS) << codGetErrorMsg2();
        MemoryPool keptPool = pool_;
        std::vector<MpoolBlockCtrl> heads;
        for (CodUint32 i = 0; i < 300; i++) {
            heads.push_back(*block(i));
        }
        damage();
        EXPECT_EQ(mpoolVerify(&pool_), COD_ERROR) << what;
        std::string text = codGetLastErrorMsg();
        EXPECT_TRUE(text.starts_with("internal error: memory pool test pool: ") && text.find(what) != std::string::npos)
            << what << ": " << text;
        expectRaised(ERR_CMM_INTERNAL_ERROR);
        pool_ = keptPool;
        for (CodUint32 i = 0; i < 300; i++) {
            *block(i) = heads[i];
        }
    }
}

TEST_F(Memory, ReportCountsContextsBeyondItsRows) {
    create(40, 128);
    MemoryContext *made = nullptr;
    for (CodUint16 i = 0; i < 30; i++) {
        ASSERT_EQ(mctxCustomCreate(&pool_, nullptr, static_cast<CodUint16>(i % 20), false, &made), COD_SUCCESS);
    }
    MpoolReport report;
    ASSERT_EQ(mpoolReport(&pool_, &report), COD_SUCCESS);
    EXPECT_TRUE(report.contexts == 30 && report.codeCount == 16 && report.otherContexts == 4);
    for (CodUint32 i = 0; i < 16; i++) {
        EXPECT_TRUE(report.codes[i].customCode == i && report.codes[i].contexts == (i < 10 ? 2u : 1u)) << i;
    }
}

TEST_F(MemoryDeathTest, AnOwnedContextStaysOnItsThread) {
    create(8, 256);
    pool_.checkThreadOwner = true;
    MemoryContext *ctx = context();
    CodUint8 *mark = take(ctx, 8);
    take(ctx, 160);
    auto elsewhere = [](std::function<void()> action) { onThreads(1, [&](CodUint32) { action(); }); };
    EXPECT_DEATH(elsewhere([&] { take(ctx, 200); }), "does not own it");
    EXPECT_DEATH(elsewhere([&] { mctxTruncate(ctx, mark); }), "does not own it");
    EXPECT_DEATH(elsewhere([&] { mctxDestroy(ctx); }), "does not own it");
    pool_.checkThreadOwner = false;
    MemoryContext *free = context();
    elsewhere([&] { take(free, 200), mctxDestroy(free); });
    mctxDestroy(ctx);
}

TEST_F(Memory, ThreadsShareAPoolAndAnAccountWithoutMeeting) {
    create(8, 256);
    mpoolRegisterExtend(&pool_, [](void *, void **buffer, CodUint64 *size) { return codSysAlloc(*size = 16 + 3 * (24 + 256), buffer); });
    MemRsrc account;
    aniMemRsrcInit(&account);
    aniMemRsrcSetLimit(&account, MEM_RSRC_DC_POOL, 20 * 256);
    std::atomic<CodUint64> created = 0;
    onThreads(4, [&](CodUint32 id) {
        Random random(id);
        for (int round = 0; round < 300; round++) {
            MemoryContext *ctx = nullptr;
            std::vector<CodUint8 *> taken;
            bool made = mctxCreateWithRsrc(&pool_, &account, &ctx) == COD_SUCCESS;
            created += made;
            for (int i = 0; i < 20 && made; i++) {
                void *out = nullptr;
                if (random.oneIn(2) ? mctxTryAlloc(ctx, 100, &out) : mctxAlloc(ctx, random.oneIn(5) ? 256 : 100, &out) == COD_SUCCESS) {
                    taken.push_back(static_cast<CodUint8 *>(std::memset(out, static_cast<int>(id), 100)));
                }
                EXPECT_LE(aniMemRsrcUsed(&account, MEM_RSRC_DC_POOL), 20u * 256);
            }
            codCleanError();
            for (CodUint8 *at : taken) {
                EXPECT_TRUE(std::all_of(at, at + 100, [&](CodUint8 byte) { return byte == id; }));
            }
            mctxTruncate(ctx, taken.empty() ? nullptr : taken[taken.size() / 2]);
            mctxDestroy(ctx);
        }
    });
    EXPECT_EQ(pool_.freeBlocks.count, pool_.blockCount);
    EXPECT_EQ(aniMemRsrcUsed(&account, MEM_RSRC_DC_POOL), 0u);
    EXPECT_EQ(pool_.poolStats.ctxDestroyTimes, created);
    EXPECT_EQ(mpoolVerify(&pool_), COD_SUCCESS) << codGetErrorMsg2();
}

// Keeps the compiler from seeing that the write is out of bounds.
void poke(CodUint8 *at) {
    *const_cast<volatile CodUint8 *>(at) = 1;
}

TEST_F(MemoryDeathTest, AddressSanitizerSeesWritesOutsideAllocations) {
    if (!COD_WITH_ASAN) {
        GTEST_SKIP() << "built without the address sanitizer";
    }
    create(4, 256);
    MemoryContext *ctx = context();
    CodUint8 *first = take(ctx, 16);
    EXPECT_DEATH(poke(first + 16), "AddressSanitizer");
    CodUint8 *second = take(ctx, 40), *whole = take(ctx, 256);
    poke(first + 16);
    poke(whole + 255);
    mctxTruncate(ctx, second);
    EXPECT_DEATH(poke(second), "AddressSanitizer");
    EXPECT_DEATH(poke(whole), "AddressSanitizer") << "a block that went back to the pool";
    poke(first + 15);
    poke(take(ctx, 8) + 7);
    EXPECT_DEATH(poke(second + 8), "AddressSanitizer");
    mctxDestroy(ctx);
    EXPECT_DEATH(poke(first), "AddressSanitizer");
}

}  // namespace
