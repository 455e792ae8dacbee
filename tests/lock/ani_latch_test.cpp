#include <vel_infra/lock/ani_latch.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vel_infra/utils/ani_clock.h>

namespace {

TEST(SpinLockTest, ExcludesOtherThreads) {
    SpinLock lock{};
    long counter = 0;
    std::vector<std::thread> threads;
    for (CodUint32 id = 0; id < 4; id++) {
        threads.emplace_back([&, id] {
            for (int i = 0; i < 20000; i++) {
                if (id % 2 == 0) {
                    spinLock(&lock, LOCK_TYPE_LRU);
                } else {
                    while (!spinTryLock(&lock)) {
                        std::this_thread::yield();
                    }
                }
                counter++;
                spinUnlock(&lock);
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 80000);
    EXPECT_EQ(lock.word, 0u);
}

TEST(SpinLockTest, TryTakesOnlyAFreeLock) {
    SpinLock lock{};
    EXPECT_TRUE(spinTryLock(&lock));
    EXPECT_EQ(lock.word, 1u);
    EXPECT_FALSE(spinTryLock(&lock));
    spinUnlock(&lock);
    EXPECT_EQ(lock.word, 0u);
    spinUnlock(nullptr);
    spinLock(&lock, 0);
    EXPECT_FALSE(spinTryLock(&lock));
    spinUnlock(&lock);
    EXPECT_TRUE(spinTryLock(&lock));
}

TEST(SpinLockTest, RowsHaveTheirNamesAndSettings) {
    const std::pair<CodUint32, const char *> kNames[] = {
        {0, "OTHERS"},
        {1, "DATABASE"},
        {5, "DIRTY BLOCK ENQUE"},
        {6, "MEMORY POOL"},
        {13, "XACT XAMP ITEM"},
        {43, "ALLOCATOR"},
        {100, "ICS NODE STATE"},
        {154, "COL RUNTIME FILTER CTX MGR"},
        {178, "TRACE_FILE"},
        {197, "WCS CLUSTER MANAGER BUFFER"},
        {219, "PIPELINED FUNCTION"},
        {225, "DC NOT READY"},
        {226, "BUILTIN PACK"},
        {227, "OTHERS"},
        {0xFFFFFFFFu, "OTHERS"},
    };
    for (auto [type, name] : kNames) {
        EXPECT_STREQ(getSpinLockAttr(type)->name, name) << type;
    }
    for (CodUint32 type = 0; type < 227; type++) {
        const SpinLockAttr *row = getSpinLockAttr(type);
        EXPECT_EQ(row, getSpinLockAttr(0) + type);
        EXPECT_EQ(row->spinCount, 128u);
        EXPECT_EQ(row->sleep, spinSleepDefault);
        EXPECT_FALSE(std::string(row->name).empty());
    }
}

CodInt64 sleeps(CodUint32 type) {
    return __atomic_load_n(&getSpinLockAttr(type)->sleepTimes, __ATOMIC_RELAXED);
}

TEST(SpinLockTest, SleepsAreCountedForTypeAndThread) {
    for (auto [type, row] : {std::pair{30u, 30u}, {226u, 226u}, {227u, 0u}, {0xFFFFFFFFu, 0u}}) {
        CodInt64 before = sleeps(row);
        CodUint32 ownBefore = spinGetTlsSleeps();
        CodInstant start = codInstantNow();
        spinSleep(type);
        EXPECT_GE(codInstantNow() - start, 100000);
        EXPECT_EQ(sleeps(row), before + 1);
        EXPECT_EQ(spinGetTlsSleeps(), ownBefore + 1);
    }
    CodInt64 before = sleeps(0);
    CodUint32 ownBefore = spinGetTlsSleeps();
    spinSleepDefault();
    EXPECT_EQ(sleeps(0), before) << "no type is named";
    EXPECT_EQ(spinGetTlsSleeps(), ownBefore + 1);
    std::thread([] { EXPECT_EQ(spinGetTlsSleeps(), 0u); }).join();
}

TEST(SpinLockTest, AWaiterSleepsUntilTheLockIsFree) {
    SpinLock lock{};
    CodInt64 before = sleeps(0);
    spinLock(&lock, 500);
    EXPECT_EQ(sleeps(0), before) << "a free lock needs no sleep";
    std::atomic<bool> taken = false;
    std::thread waiter([&] {
        spinLock(&lock, 500);
        taken = true;
        EXPECT_GT(spinGetTlsSleeps(), 0u);
        spinUnlock(&lock);
    });
    while (sleeps(0) == before) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(taken);
    spinUnlock(&lock);
    waiter.join();
    EXPECT_TRUE(taken);
}

}  // namespace
