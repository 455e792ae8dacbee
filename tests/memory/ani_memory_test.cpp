#include <vel_infra/memory/ani_memory.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vel_infra/adr/ani_alert.h>
#include <vel_infra/utils/ani_clock.h>

#include "support/memory_support.h"

namespace {

using memory_support::expectRaised;
using memory_support::Random;

std::vector<std::string> alerts;

class Memory : public memory_support::CleanErrors {
protected:
    Memory() {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        alerts.clear();
        aniSetAlertCallback([](CodUint32 kind, const char *text, CodBool isRaise) {
            alerts.push_back(std::to_string(kind) + (isRaise ? " raised " : " cleared ") + text);
        });
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

TEST_F(Memory, NamesAndSizesAreCheckedBeforeAPoolIsMade) {
    std::string longest(67, 'n'), tooLong(68, 'n');
    alignas(16) CodUint8 area[4096] = {};
    ASSERT_EQ(mpoolCreate(2, 256, MEM_RSRC_DC_POOL, longest.c_str(), &pool_), COD_SUCCESS);
    EXPECT_EQ(pool_.name, longest);
    EXPECT_EQ(pool_.memType, MEM_RSRC_DC_POOL);
    mpoolDestroy(&pool_);
    ASSERT_EQ(mpoolAttach(area, sizeof(area), 256, MEM_RSRC_DC_POOL, longest.c_str(), &longest, &pool_), COD_SUCCESS);
    EXPECT_EQ(pool_.blockCount, (4096u - 16) / 280);
    EXPECT_EQ(pool_.instance, area);
    mpoolDestroy(&pool_);
    pool_ = {};

    MemoryPool other{};
    MemRsrcType type = MEM_RSRC_OTHERS;
    const struct {
        const char *what;
        std::function<CodResult()> call;
        CodError code;
    } kCases[] = {
        {"create, long name", [&] { return mpoolCreate(2, 256, type, tooLong.c_str(), &other); }, ERR_CMM_COPY_DATA},
        {"attach, long name", [&] { return mpoolAttach(area, sizeof(area), 256, type, tooLong.c_str(), nullptr, &other); },
         ERR_CMM_COPY_DATA},
        {"create, beyond 64 bits", [&] { return mpoolCreate(0xFFFFFFFFu, 0xFFFFFFFFu, type, "x", &other); }, ERR_CMM_INVALID_PARAMETER},
        {"attach, unaligned", [&] { return mpoolAttach(area + 4, 1000, 256, type, "x", nullptr, &other); }, ERR_CMM_INVALID_PARAMETER},
        {"attach, no room for the header", [&] { return mpoolAttach(area, 15, 256, type, "x", nullptr, &other); },
         ERR_CMM_INVALID_PARAMETER},
        {"create, no pool", [&] { return mpoolCreate(2, 256, type, "x", nullptr); }, ERR_CMM_POINTER_NULL},
        {"create, no name", [&] { return mpoolCreate(2, 256, type, nullptr, &other); }, ERR_CMM_POINTER_NULL},
        {"attach, no buffer", [&] { return mpoolAttach(nullptr, 1000, 256, type, "x", nullptr, &other); }, ERR_CMM_POINTER_NULL},
    };
    for (const auto &row : kCases) {
        EXPECT_EQ(row.call(), COD_ERROR) << row.what;
        EXPECT_EQ(codGetErrorCode(), row.code) << row.what;
        codCleanError();
    }
    ASSERT_EQ(mpoolAttach(area, 16, 256, type, "x", nullptr, &other), COD_SUCCESS);
    EXPECT_EQ(other.blockCount, 0u);
    mpoolDestroy(&other);
}

TEST_F(Memory, ABlockMustHoldTheContextsRecord) {
    create(4, sizeof(MemoryContext) - 1);
    MemoryContext *made = nullptr;
    EXPECT_EQ(mctxCreate(&pool_, &made), COD_ERROR);
    EXPECT_EQ(codGetErrorCode(), static_cast<CodError>(ERR_CMM_BLOCK_SIZE_ILLEGAL));
    codCleanError();
    EXPECT_FALSE(mctxTryCreate(&pool_, &made));
    EXPECT_EQ(codGetErrorStackDepth(), 0u);
    EXPECT_EQ(pool_.freeBlocks.count, 4u);
}

TEST_F(Memory, NullArgumentsAreRefused) {
    create(4, 256);
    MemoryContext *ctx = context();
    void *out = nullptr;
    CodUint32 size = 0;
    CodText text = {};
    const std::function<CodResult()> kCalls[] = {
        [&] { return mctxCreate(nullptr, &ctx); },
        [&] { return mctxCreate(&pool_, nullptr); },
        [&] { return mctxAlloc(nullptr, 8, &out); },
        [&] { return mctxAlloc(ctx, 8, nullptr); },
        [&] { return mctxAllocMax(nullptr, 8, &size, &out); },
        [&] { return mctxAllocMax(ctx, 8, nullptr, &out); },
        [&] { return mctxAllocMax(ctx, 8, &size, nullptr); },
        [&] { return mctxExtend(nullptr); },
        [&] { return mctxReserveBlocks(nullptr, 1); },
        [&] { return mctxCopyText(nullptr, &text, &text); },
        [&] { return mctxCopyText(ctx, nullptr, &text); },
        [&] { return mctxCopyText(ctx, &text, nullptr); },
        [&] { return mpoolVerify(nullptr); },
        [&] { return mpoolReport(&pool_, nullptr); },
    };
    for (std::size_t i = 0; i < std::size(kCalls); i++) {
        EXPECT_EQ(kCalls[i](), COD_ERROR) << i;
        expectRaised(ERR_CMM_POINTER_NULL, "null pointer");
    }
    EXPECT_FALSE(mctxTryAlloc(nullptr, 8, &out) || mctxTryAlloc(ctx, 8, nullptr) || mctxTryCreate(nullptr, &ctx) ||
                 mctxTryCreate(&pool_, nullptr));
    mctxTruncate(nullptr, &out);
    mctxTruncate(ctx, nullptr);
    mctxDestroy(nullptr);
    mpoolDestroy(nullptr);
    mpoolFreeBlocks(&pool_, nullptr);
    EXPECT_EQ(codGetErrorStackDepth(), 0u);
    mctxDestroy(ctx);
    EXPECT_EQ(mpoolVerify(&pool_), COD_SUCCESS);
}

TEST_F(Memory, AFailedAllocationGivesNull) {
    create(1, 256);
    MemoryContext *ctx = context();
    for (CodUint32 size : {200u, 256u, 257u, 0xFFFFFFFFu}) {
        void *out = &out;
        EXPECT_EQ(mctxAlloc(ctx, size, &out), COD_ERROR);
        EXPECT_EQ(out, nullptr) << size;
        EXPECT_EQ(codGetErrorCode(), size > 256 ? 104u : 103u);
        codCleanError();
        out = &out;
        EXPECT_FALSE(mctxTryAlloc(ctx, size, &out));
        EXPECT_EQ(out, nullptr) << size;
    }
    take(ctx, 256 - sizeof(MemoryContext));
    void *out = &out;
    CodUint32 size = 0;
    EXPECT_EQ(mctxAllocMax(ctx, 8, &size, &out), COD_ERROR);
    EXPECT_EQ(out, nullptr);
}

TEST_F(Memory, ExhaustionAlertsOnceUntilClearedOrFiveMinutesPass) {
    const std::string raised = "8 raised |test pool memory pool is exhausted";
    create(3, 256);
    pool_.rsvdBlocks = 1;
    MemoryContext *a = context(), *b = context(), *refused = nullptr;
    auto refuse = [&] {
        EXPECT_EQ(mctxCreate(&pool_, &refused), COD_ERROR);
        expectRaised(ERR_CMM_ALLOC_MPOOL_BLOCK, "no free block in test pool");
    };
    CodDate before = codNow();
    refuse();
    refuse();
    EXPECT_EQ(alerts, std::vector<std::string>{raised});
    EXPECT_TRUE(pool_.alerted);
    EXPECT_TRUE(pool_.alertTime >= before && pool_.alertTime <= codNow());
    mctxDestroy(a);
    EXPECT_FALSE(pool_.alerted) << "more blocks than the reserve are free again";
    ASSERT_EQ(alerts.size(), 2u);
    EXPECT_EQ(alerts[1].substr(0, 10), "8 cleared ");

    a = context();
    refuse();
    EXPECT_EQ(alerts.size(), 2u) << "the last one is not five minutes old";
    EXPECT_FALSE(pool_.alerted);
    pool_.alertTime -= 301 * 1000000LL;
    refuse();
    refuse();
    ASSERT_EQ(alerts.size(), 3u);
    EXPECT_EQ(alerts[2], raised);
    pool_.alertTime -= 301 * 1000000LL;
    refuse();
    EXPECT_EQ(alerts.size(), 3u) << "one is outstanding";
    MpoolBlockCtrl *taken = nullptr;
    ASSERT_TRUE(mpoolTryAllocBlock(&pool_, &taken, true, false));
    mctxDestroy(b);
    EXPECT_TRUE(pool_.alerted) << "only the reserve is free";
    mctxDestroy(a);
    EXPECT_FALSE(pool_.alerted);
    EXPECT_EQ(alerts.size(), 4u);
    MpoolBlockCtrlList list = {taken, taken, 1, 0};
    mpoolFreeBlocks(&pool_, &list);
    EXPECT_EQ(pool_.freeBlocks.count, 3u);
}

CodUint64 extendSize;
CodResult extendBySize(void *, void **buffer, CodUint64 *size) {
    *size = extendSize;
    return codSysAlloc(extendSize, buffer);
}

TEST_F(Memory, AnExtensionTooSmallForABlockIsAnError) {
    create(1, 256);
    mpoolRegisterExtend(&pool_, extendBySize);
    MemoryContext *ctx = context();
    for (CodUint64 size : {8u, 16u, 17u, 16u + 24 + 255}) {
        extendSize = size;
        EXPECT_EQ(mctxExtend(ctx), COD_ERROR) << size;
        EXPECT_NE(codGetErrorCode(), 0u);
        codCleanError();
        EXPECT_EQ(pool_.blockCount, 1u);
        EXPECT_EQ(mpoolVerify(&pool_), COD_SUCCESS) << codGetErrorMsg2();
    }
    extendSize = 16 + 24 + 256;
    EXPECT_EQ(mctxExtend(ctx), COD_SUCCESS);
    EXPECT_EQ(pool_.blockCount, 2u);
}

TEST_F(Memory, FailedSystemAllocationLeavesPoolAndContextUsable) {
    for (CodInt32 n = 0;; n++) {
        ASSERT_LT(n, 20);
        MemoryPool pool{};
        MemoryContext *ctx = nullptr;
        std::string source(200, 's');
        CodText text = {source.data(), 200, 0};
        void *out = nullptr;
        CodUint32 size = 0;
        extendSize = 16 + 24 + 256;
        int failures = 0;
        codFailAllocAfter(n);
        auto retried = [&](std::function<CodResult()> call) {
            if (call() != COD_SUCCESS) {
                failures++;
                expectRaised(ERR_CMM_ALLOC_MEMORY, codGetLastErrorMsg());
                EXPECT_TRUE(failures == 1);
                EXPECT_TRUE(pool.blockCount == 0 || mpoolVerify(&pool) == COD_SUCCESS);
                EXPECT_EQ(call(), COD_SUCCESS);
            }
        };
        retried([&] { return mpoolCreate(1, 256, MEM_RSRC_OTHERS, "x", &pool); });
        mpoolRegisterExtend(&pool, extendBySize);
        retried([&] { return mctxCreate(&pool, &ctx); });
        retried([&] { return mctxAlloc(ctx, 256, &out); });
        retried([&] { return mctxAlloc(ctx, 200, &out); });
        retried([&] { return mctxCopyText(ctx, &text, &text); });
        retried([&] { return mctxExtend(ctx); });
        retried([&] { return mctxReserveBlocks(ctx, 3); });
        retried([&] { return mctxAllocMax(ctx, 256, &size, &out); });
        codFailAllocAfter(-1);
        EXPECT_EQ(std::string(text.str, text.len), source);
        EXPECT_EQ(pool.blockCount, 8u);
        EXPECT_EQ(mpoolVerify(&pool), COD_SUCCESS);
        mctxDestroy(ctx);
        EXPECT_EQ(pool.freeBlocks.count, 8u);
        mpoolDestroy(&pool);
        if (failures == 0) {
            EXPECT_EQ(n, 8);
            break;
        }
    }
}

TEST_F(Memory, VerifyFindsWhatIsWrong) {
    create(300, 128);
    MemoryContext *ctx = context();
    take(ctx, 128);
    auto *blocks = reinterpret_cast<CodUint8 *>(pool_.buffer) + 16;
    auto block = [&](CodUint32 index) { return reinterpret_cast<MpoolBlockCtrl *>(blocks + index * 152); };
    MemoryPool other{};
    MpoolBlockCtrl *tail = pool_.freeBlocks.tail;
    const std::pair<const char *, std::function<void()>> kDamages[] = {
        {"magic of a used block", [&] { block(0)->magicNum ^= 1; }},
        {"magic of a free block", [&] { block(299)->magicNum ^= 1; }},
        {"code of a used block", [&] { block(1)->continuityCode++; }},
        {"code of a free block", [&] { block(256)->continuityCode++; }},
        {"owner of a used block", [&] { block(1)->pool = &other; }},
        {"owner of a free block", [&] { block(100)->pool = nullptr; }},
        {"type of a free block", [&] { block(100)->type = 1; }},
        {"free count too high", [&] { pool_.freeBlocks.count++; }},
        {"free count too low", [&] { pool_.freeBlocks.count--; }},
        {"free list cut", [&] { block(100)->next = nullptr; }},
        {"free list in a circle", [&] { block(299)->next = block(2); }},
        {"context on the free list",
         [&] { pool_.freeBlocks.tail = block(299)->next = block(0), block(0)->next = nullptr, pool_.freeBlocks.count++; }},
        {"tail elsewhere", [&] { pool_.freeBlocks.tail = block(50); }},
        {"block count", [&] { pool_.blockCount++; }},
    };
    EXPECT_EQ(mpoolVerify(&pool_), COD_SUCCESS) << codGetErrorMsg2();
    for (const auto &[what, damage] : kDamages) {
        MemoryPool keptPool = pool_;
        std::vector<MpoolBlockCtrl> heads;
        for (CodUint32 i = 0; i < 300; i++) {
            heads.push_back(*block(i));
        }
        damage();
        EXPECT_EQ(mpoolVerify(&pool_), COD_ERROR) << what;
        EXPECT_EQ(codGetErrorCode(), static_cast<CodError>(ERR_CMM_INTERNAL_ERROR)) << what;
        EXPECT_EQ(std::string(codGetLastErrorMsg()).rfind("internal error: ", 0), 0u) << codGetLastErrorMsg();
        codCleanError();
        pool_ = keptPool;
        for (CodUint32 i = 0; i < 300; i++) {
            *block(i) = heads[i];
        }
        ASSERT_EQ(mpoolVerify(&pool_), COD_SUCCESS) << what << " was undone";
    }
    EXPECT_EQ(pool_.freeBlocks.tail, tail);
}

TEST_F(Memory, ReportCountsContextsBeyondItsRows) {
    create(40, 128);
    MemoryContext *made = nullptr;
    for (CodUint16 i = 0; i < 30; i++) {
        ASSERT_EQ(mctxCustomCreate(&pool_, nullptr, static_cast<CodUint16>(i % 20), false, &made), COD_SUCCESS);
    }
    MpoolReport report;
    ASSERT_EQ(mpoolReport(&pool_, &report), COD_SUCCESS);
    EXPECT_EQ(report.contexts, 30u);
    ASSERT_EQ(report.codeCount, 16u);
    for (CodUint32 i = 0; i < 16; i++) {
        EXPECT_EQ(report.codes[i].customCode, i);
        EXPECT_EQ(report.codes[i].contexts, i < 10 ? 2u : 1u);
    }
    EXPECT_EQ(report.otherContexts, 4u);
}

TEST_F(Memory, TextsAreCopiedIntoTheContext) {
    create(1, 256);
    MemoryContext *ctx = context();
    char source[] = "copied";
    CodText text = {source, 6, 9}, copy = {nullptr, 0, 7};
    ASSERT_EQ(mctxCopyText(ctx, &text, &copy), COD_SUCCESS);
    EXPECT_TRUE(copy.str != source && copy.aux == 7);
    std::memset(source, 'x', 6);
    EXPECT_EQ(std::string(copy.str, copy.len), "copied");
    CodChar *first = copy.str;
    ASSERT_EQ(mctxCopyText(ctx, &copy, &copy), COD_SUCCESS);
    EXPECT_TRUE(copy.str != first && std::string(copy.str, copy.len) == "copied" && copy.aux == 7);
    CodText empty = {nullptr, 0, 1}, before = copy, large = {source, 257, 0};
    EXPECT_EQ(mctxCopyText(ctx, &large, &copy), COD_ERROR);
    expectRaised(ERR_CMM_ALLOC_MCTX_MEM, "allocate unexpected size from memory pool, mem type DC POOL");
    EXPECT_EQ(std::memcmp(&copy, &before, sizeof(copy)), 0);
    ASSERT_EQ(mctxCopyText(ctx, &empty, &copy), COD_SUCCESS);
    EXPECT_EQ(copy.len, 0u);
}

TEST_F(Memory, ALockFreePoolIsNeverLocked) {
    create(4, 256);
    pool_.isLockFree = true;
    spinLock(&pool_.lock, LOCK_TYPE_MEMORY_POOL);
    MemoryContext *ctx = context();
    CodUint8 *mark = take(ctx, 8);
    take(ctx, 256);
    mctxTruncate(ctx, mark);
    mctxDestroy(ctx);
    EXPECT_EQ(mpoolVerify(&pool_), COD_SUCCESS);
    EXPECT_EQ(pool_.freeBlocks.count, 4u);
    EXPECT_EQ(pool_.lock.word, 1u);
}

TEST_F(MemoryDeathTest, AnOwnedContextStaysOnItsThread) {
    create(8, 256);
    pool_.checkThreadOwner = true;
    MemoryContext *ctx = context();
    CodUint8 *mark = take(ctx, 8);
    take(ctx, 160);
    auto elsewhere = [](std::function<void()> action) { std::thread(action).join(); };
    EXPECT_DEATH(elsewhere([&] { take(ctx, 200); }), "");
    EXPECT_DEATH(elsewhere([&] { mctxTruncate(ctx, mark); }), "");
    EXPECT_DEATH(elsewhere([&] { mctxDestroy(ctx); }), "");
    pool_.checkThreadOwner = false;
    MemoryContext *free = context();
    elsewhere([&] { take(free, 200), mctxDestroy(free); });
    mctxDestroy(ctx);
    EXPECT_EQ(pool_.freeBlocks.count, 8u);
}

TEST_F(Memory, ThreadsShareAPoolWithoutMeeting) {
    create(8, 256);
    mpoolRegisterExtend(&pool_, extendBySize);
    extendSize = 16 + 3 * (24 + 256);
    MemRsrc account;
    aniMemRsrcInit(&account);
    aniMemRsrcSetLimit(&account, MEM_RSRC_DC_POOL, 20 * 256);
    std::atomic<CodUint64> created = 0;
    std::vector<std::thread> threads;
    for (CodUint32 id = 1; id <= 4; id++) {
        threads.emplace_back([&, id] {
            Random random(id);
            for (int round = 0; round < 300; round++) {
                MemoryContext *ctx = nullptr;
                if (mctxCreateWithRsrc(&pool_, &account, &ctx) != COD_SUCCESS) {
                    codCleanError();
                    continue;
                }
                created++;
                std::vector<CodUint8 *> taken;
                for (int i = 0; i < 20; i++) {
                    void *out = nullptr;
                    bool got =
                        random.oneIn(2) ? mctxTryAlloc(ctx, 100, &out) : mctxAlloc(ctx, random.oneIn(5) ? 256 : 100, &out) == COD_SUCCESS;
                    if (got) {
                        std::memset(out, static_cast<int>(id), 100);
                        taken.push_back(static_cast<CodUint8 *>(out));
                    }
                    EXPECT_LE(aniMemRsrcUsed(&account, MEM_RSRC_DC_POOL), 20u * 256);
                }
                codCleanError();
                for (CodUint8 *at : taken) {
                    EXPECT_TRUE(std::all_of(at, at + 100, [&](CodUint8 byte) { return byte == id; }));
                }
                if (!taken.empty()) {
                    mctxTruncate(ctx, taken[taken.size() / 2]);
                }
                mctxDestroy(ctx);
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
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
    CodUint8 *second = take(ctx, 40);
    poke(first + 16);
    CodUint8 *whole = take(ctx, 256);
    poke(whole + 255);
    mctxTruncate(ctx, second);
    EXPECT_DEATH(poke(second), "AddressSanitizer");
    EXPECT_DEATH(poke(second + 39), "AddressSanitizer");
    EXPECT_DEATH(poke(whole), "AddressSanitizer") << "a block that went back to the pool";
    poke(first + 15);
    CodUint8 *again = take(ctx, 8);
    poke(again + 7);
    EXPECT_DEATH(poke(again + 8), "AddressSanitizer");
    mctxDestroy(ctx);
    EXPECT_DEATH(poke(first), "AddressSanitizer");
}

}  // namespace
