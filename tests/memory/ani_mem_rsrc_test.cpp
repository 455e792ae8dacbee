#include <vel_infra/memory/ani_mem_rsrc.h>

#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/memory_support.h"

namespace {

using memory_support::expectRaised;

using MemRsrcTest = memory_support::CleanErrors;

TEST_F(MemRsrcTest, TypesHaveNames) {
    const char *kNames[] = {"OTHERS",     "VM BUFFER",   "LARGER POOL", "APP POOL",           "JOB POOL", "DC POOL",
                            "SHARE POOL", "WORKER AREA", "PQ POOL",     "COLUMNAR VM BUFFER", "UNKNOWN"};
    for (int type = 0; type <= 10; type++) {
        EXPECT_STREQ(aniMemRsrcTypeName(static_cast<MemRsrcType>(type)), kNames[type]);
    }
}

TEST_F(MemRsrcTest, ReservationsNeverPassTheLimit) {
    MemRsrc account;
    aniMemRsrcInit(&account);
    EXPECT_EQ(aniMemRsrcAllocSpaQuota(&account, MEM_RSRC_VM_BUFFER, UINT64_MAX), COD_SUCCESS) << "no limit at first";
    EXPECT_EQ(aniMemRsrcAllocSpaQuota(&account, MEM_RSRC_VM_BUFFER, 1), COD_ERROR) << "the sum would wrap";
    expectRaised(ERR_CMM_ALLOC_MEM_QUOTA, "failed to allocate 1 bytes memory quota for VM BUFFER");
    aniMemRsrcFreeSpaQuota(&account, MEM_RSRC_VM_BUFFER, UINT64_MAX);

    const struct {
        CodUint64 limit, used, bytes;
        bool fits;
    } kCases[] = {
        {0, 0, 0, true},
        {0, 0, 1, false},
        {100, 0, 100, true},
        {100, 0, 101, false},
        {100, 60, 40, true},
        {100, 60, 41, false},
        {50, 60, 1, false},
        {50, 60, 0, false},
        {100, 60, UINT64_MAX - 10, false},
        {100, 60, UINT64_MAX, false},
    };
    for (const auto &row : kCases) {
        aniMemRsrcInit(&account);
        EXPECT_EQ(aniMemRsrcAllocSpaQuota(&account, MEM_RSRC_DC_POOL, row.used), COD_SUCCESS);
        aniMemRsrcSetLimit(&account, MEM_RSRC_DC_POOL, row.limit);
        CodResult result = aniMemRsrcAllocSpaQuota(&account, MEM_RSRC_DC_POOL, row.bytes);
        if (row.bytes == 0 && row.used > row.limit) {
            codCleanError();  // nothing asked for above a lowered limit: either answer serves
        } else {
            EXPECT_EQ(result, row.fits ? COD_SUCCESS : COD_ERROR) << row.limit << " " << row.used << " " << row.bytes;
        }
        EXPECT_EQ(aniMemRsrcUsed(&account, MEM_RSRC_DC_POOL), row.used + (row.fits ? row.bytes : 0));
        EXPECT_EQ(aniMemRsrcUsed(&account, MEM_RSRC_APP_POOL), 0u);
        codCleanError();
    }
}

TEST_F(MemRsrcTest, UnknownTypesAndNullAreRefused) {
    MemRsrc account;
    aniMemRsrcInit(&account);
    int raw = 10;
    auto unknown = static_cast<MemRsrcType>(raw);
    EXPECT_EQ(aniMemRsrcAllocSpaQuota(&account, unknown, 1), COD_ERROR);
    EXPECT_EQ(codGetErrorCode(), static_cast<CodError>(ERR_CMM_INVALID_PARAMETER));
    codCleanError();
    aniMemRsrcSetLimit(&account, unknown, 0);
    aniMemRsrcFreeSpaQuota(&account, unknown, 1);
    EXPECT_EQ(aniMemRsrcUsed(&account, unknown), 0u);
    for (int type = 0; type < 10; type++) {
        EXPECT_EQ(aniMemRsrcUsed(&account, static_cast<MemRsrcType>(type)), 0u);
        EXPECT_EQ(account.limit[type], account.limit[0]);
    }
    EXPECT_EQ(aniMemRsrcAllocSpaQuota(nullptr, MEM_RSRC_OTHERS, 1), COD_ERROR);
    expectRaised(ERR_CMM_POINTER_NULL, "null pointer");
}

TEST_F(MemRsrcTest, ThreadsShareAnAccount) {
    MemRsrc account;
    aniMemRsrcInit(&account);
    aniMemRsrcSetLimit(&account, MEM_RSRC_JOB_POOL, 250);
    std::vector<std::thread> threads;
    for (int id = 0; id < 4; id++) {
        threads.emplace_back([&] {
            for (int i = 0; i < 5000; i++) {
                if (aniMemRsrcAllocSpaQuota(&account, MEM_RSRC_JOB_POOL, 100) == COD_SUCCESS) {
                    EXPECT_LE(aniMemRsrcUsed(&account, MEM_RSRC_JOB_POOL), 250u);
                    aniMemRsrcFreeSpaQuota(&account, MEM_RSRC_JOB_POOL, 100);
                }
                codCleanError();
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(aniMemRsrcUsed(&account, MEM_RSRC_JOB_POOL), 0u);
}

}  // namespace
