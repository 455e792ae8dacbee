#include <vel_infra/lock/ani_lock.h>

#include <cstring>
#include <set>

#include <vel_infra/utils/ani_clock.h>

#include "support/memory_support.h"

TEST(LockTest, ResultsAreThoseOfPosixAndWaitsEndInTheirTime) {
    CodThreadLock lock, free{}, untouched{};
    CodCondVar cond;
    EXPECT_EQ(codThreadLockInit(&lock) | codCondVarInit(&cond) | codThreadTryLock(&lock), 0);
    EXPECT_EQ(std::set({codThreadLockInit(nullptr), codThreadLockDestory(nullptr), codThreadLock(nullptr), codThreadTryLock(nullptr),
                        codThreadUnlock(nullptr), codCondVarInit(nullptr), codCondVarDestroy(nullptr), codCondVarNotifyOne(nullptr),
                        codCondVarNotifyAll(nullptr), codCondVarWait(nullptr, &lock), codCondVarWait(&cond, nullptr)}),
              std::set{EINVAL});
    for (CodInt64 limit : {0, 30, -30, 1100}) {
        CodInstant end = codInstantNow() + std::abs(limit) * 1000000;
        EXPECT_TRUE(limit < 0 ? codCondVarWaitDeadline(&cond, &lock, end) : codCondVarWaitTimeout(&cond, &lock, CodUint32(limit)));
        EXPECT_TRUE(codInstantNow() >= end && codInstantNow() < end + 900000000 && codThreadTryLock(&lock) == EBUSY) << limit;
    }
    for (CodInstant deadline : {codInstantNow(), CodInstant{0}, CodInstant{-1}, INT64_MIN}) {
        EXPECT_TRUE(codCondVarWaitDeadline(&cond, &free, deadline) && std::memcmp(&free, &untouched, sizeof(free)) == 0) << deadline;
    }
    EXPECT_EQ(codThreadUnlock(&lock), 0);
    for (CodUint32 threads : {2u, 6u}) {
        CodUint32 turn = 0;
        memory_support::onThreads(threads, [&](CodUint32 id) {
            for (int round = 0; round < 200; round++) {
                EXPECT_EQ(codThreadLock(&lock), 0);
                while (turn % threads != id - 1) {
                    EXPECT_FALSE(id == 1        ? codCondVarWait(&cond, &lock) != 0
                                 : threads == 2 ? codCondVarWaitTimeout(&cond, &lock, ~0u)
                                                : codCondVarWaitDeadline(&cond, &lock, INT64_MAX));
                }
                turn++;
                EXPECT_EQ((threads == 2 ? codCondVarNotifyOne : codCondVarNotifyAll)(&cond) | codThreadUnlock(&lock), 0);
            }
        });
        EXPECT_EQ(turn, 200 * threads);
    }
    EXPECT_EQ(codThreadLockDestory(&lock) | codCondVarDestroy(&cond), 0);
}
