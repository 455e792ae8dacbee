#include "progress.h"

#include <unistd.h>

#include <cstdio>

#include <vel_infra/utils/ani_clock.h>

#include "printable.h"

namespace vel {

namespace {

constexpr CodInstant kInterval = 300'000'000;  // nanoseconds

}  // namespace

Progress::Progress() : isTerminal_(isatty(STDERR_FILENO) == 1), nextTime_(codInstantNow() + kInterval) {}

Progress::~Progress() {
    if (isShown_) {
        fputs("\r\033[K", stderr);
        fflush(stderr);
    }
}

void Progress::onRead(CodUint64 bytes, CodUint64 rows) {
    if (!isTerminal_) {
        return;
    }
    const CodInstant now = codInstantNow();
    if (now < nextTime_) {
        return;
    }
    nextTime_ = now + kInterval;
    isShown_ = true;
    char rowText[kCountSize];
    char byteText[kCountSize];
    fprintf(stderr, "\r\033[K%s rows, %s MB", formatCount(rows, rowText), formatCount(bytes / 1'000'000, byteText));
    fflush(stderr);
}

}  // namespace vel
