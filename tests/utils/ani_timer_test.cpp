#include <vel_infra/utils/ani_timer.h>

#include <sys/wait.h>
#include <atomic>

#include <vel_infra/utils/ani_clock.h>

#include "support/memory_support.h"

const auto goesOn = [](const CodTimer &timer) { return usleep(150000) == 0 && codNow() - codTimerNow(&timer) < 100000; };

TEST(TimerTest, HoldsTheTimeFromStartToStop) {
    setenv("TZ", "AAA-05:45", 1);
    CodTimer timer{}, other{};
    CodDate begin = codNow();
    std::atomic<bool> done = false;
    memory_support::onThreads(3, [&](CodUint32 id) {
        for (int i = 0; id == 1 && i < 40; i++) {
            codStopTimer(&timer), codStopTimer(&timer);
            EXPECT_EQ(codTimerNow(&timer) | codTimerLocalTime(&timer) | codTimerNow(nullptr) | codTimerLocalTime(nullptr), 0);
            EXPECT_EQ(codStartTimer(&timer) | codStartTimer(&timer) | codStartTimer(&other), COD_SUCCESS);
            EXPECT_NEAR(static_cast<double>(codTimerLocalTime(&timer) - codTimerNow(&timer)), 345e6 * 60, 1e6);
            codStopTimer(&other);
            EXPECT_TRUE(codTimerNow(&timer) >= begin && (i % 16 != 0 || goesOn(timer)));
        }
        for (done = done || id == 1; !done;) {
            CodDate now = codTimerNow(&timer), local = codTimerLocalTime(&timer);
            EXPECT_TRUE((now == 0 || (now >= begin && now <= codNow())) && (local == 0 || local >= begin)) << now << " " << local;
        }
    });
    pid_t child = fork();
    if (child == 0) {
        bool isEmpty = alarm(10) == 0 && (codTimerNow(&timer) | codTimerLocalTime(&timer)) == 0;
        // The thread sanitizer allows no thread in a child.
        _exit(isEmpty && (COD_WITH_TSAN || (codStartTimer(&timer) == COD_SUCCESS && goesOn(timer))) ? 0 : 1);
    }
    int status = unsetenv("TZ");
    EXPECT_TRUE(waitpid(child, &status, 0) == child && status == 0 && goesOn(timer)) << status;
    codStopTimer(&timer);
}
