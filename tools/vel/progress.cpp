#include "progress.h"

#include <unistd.h>

#include <cstdio>

#include <vel_infra/utils/ani_clock.h>

#include "printable.h"

namespace vel {

namespace {

constexpr CodInstant kInterval = 300'000'000;  // nanoseconds

}  // namespace

Progress::Progress(const char *unit)
    : unit_(unit), isTerminal_(unit != nullptr && isatty(STDERR_FILENO) == 1), nextTime_(codInstantNow() + kInterval) {}

Progress::~Progress() {
    if (isShown_) {
        fputs("\r\033[K", stderr);
        fflush(stderr);
    }
}

void Progress::show(CodUint64 bytes, CodUint64 count) {
    if (!isTerminal_) {
        return;
    }
    const CodInstant now = codInstantNow();
    if (now < nextTime_) {
        return;
    }
    nextTime_ = now + kInterval;
    isShown_ = true;
    char unitText[kUnitsSize];
    char byteText[kCountSize];
    fprintf(stderr, "\r\033[K%s, %s MB", formatUnits(count, unit_, unitText), formatCount(bytes / 1'000'000, byteText));
    fflush(stderr);
}

}  // namespace vel
