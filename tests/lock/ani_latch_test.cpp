#include <vel_infra/lock/ani_latch.h>

#include <atomic>

#include <vel_infra/utils/ani_clock.h>

#include "support/memory_support.h"

namespace {

CodInt64 sleeps(CodUint32 type) {
    return __atomic_load_n(&getSpinLockAttr(type)->sleepTimes, __ATOMIC_RELAXED);
}

TEST(SpinLockTest, ExcludesOtherThreads) {
    SpinLock lock{};
    long counter = 0;
    memory_support::onThreads(4, [&](CodUint32 id) {
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
    EXPECT_EQ(counter, 80000);
    EXPECT_TRUE(spinTryLock(&lock));
    EXPECT_FALSE(spinTryLock(&lock));
    spinUnlock(nullptr);
}

TEST(SpinLockTest, SleepsAreCountedForTypeAndThread) {
    struct Row {
        CodUint32 type, row;
        const char *name;
    };
    for (auto [type, row, name] : {Row{0, 0, "OTHERS"},
                                   {1, 1, "DATABASE"},
                                   {43, 43, "ALLOCATOR"},
                                   {178, 178, "TRACE_FILE"},
                                   {226, 226, "BUILTIN PACK"},
                                   {227, 0, "OTHERS"},
                                   {0xFFFFFFFFu, 0, "OTHERS"}}) {
        EXPECT_STREQ(getSpinLockAttr(type)->name, name);
        CodInt64 before = sleeps(row);
        CodUint32 ownBefore = spinGetTlsSleeps();
        CodInstant start = codInstantNow();
        spinSleep(type);
        EXPECT_GE(codInstantNow() - start, 100000);
        EXPECT_EQ(sleeps(row), before + 1) << type;
        EXPECT_EQ(spinGetTlsSleeps(), ownBefore + 1);
    }
}

TEST(SpinLockTest, AWaiterSleepsUntilTheLockIsFree) {
    SpinLock lock{};
    CodInt64 before = sleeps(0);
    spinLock(&lock, 500);
    EXPECT_EQ(sleeps(0), before) << "a free lock needs no sleep";
    std::atomic<bool> taken = false;
    std::thread waiter([&] {
        EXPECT_EQ(spinGetTlsSleeps(), 0u);
        spinLock(&lock, 500);
        taken = true;
        EXPECT_GT(spinGetTlsSleeps(), 0u);
    });
    while (sleeps(0) == before) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(taken);
    spinUnlock(&lock);
    waiter.join();
}

}  // namespace
