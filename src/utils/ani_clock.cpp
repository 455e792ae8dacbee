#include <vel_infra/utils/ani_clock.h>

#include <time.h>

namespace {

timespec readClock(clockid_t clock) {
    timespec now;
    clock_gettime(clock, &now);
    return now;
}

}  // namespace

CodDate codNow(void) {
    const timespec now = readClock(CLOCK_REALTIME);
    return CodDate{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

CodInstant codInstantNow(void) {
    const timespec now = readClock(CLOCK_MONOTONIC);
    return CodInstant{now.tv_sec} * 1000000000 + now.tv_nsec;
}
