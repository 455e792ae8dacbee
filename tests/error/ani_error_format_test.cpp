#include "error/ani_error_format_internal.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <iterator>
#include <random>
#include <string>

namespace {

// The length and the buffer, with what stands behind the room.
std::string bufferAfter(bool ours, CodUint32 room, const char *fmt, ...) {
    std::string buffer(room + 8, '#');
    va_list args;
    va_start(args, fmt);
    const int length = ours ? cod::formatText(buffer.data(), room, fmt, args) : vsnprintf(buffer.data(), room, fmt, args);
    va_end(args);
    return std::to_string(length) + ":" + buffer;
}

TEST(ErrorFormat, AgreesWithVsnprintf) {
    static const char *kTexts[] = {"%s", "a %s b", "%.2s", "%-8s|", "\"%s\" %lu%%", "%%%s%ld", "%s %x", "%s %5d", "%s%c"};
    static const char *kNumbers[] = {"%d", "%u", "%ld", "%lu", "%%", "plain", "", "[%u, %lu]", "%d%%%lu", "%lld", "%+d", "%d %s"};
    static const long kValues[] = {0, 1, -1, 9, 10, 99, INT_MAX, INT_MIN, UINT_MAX, LONG_MAX, LONG_MIN, 1234567890123456789};
    std::mt19937 random(1);
    for (int round = 0; round < 200000; round++) {
        const auto room = static_cast<CodUint32>(1 + random() % 48);
        const std::string text(random() % 40, 's');
        const long value = kValues[random() % std::size(kValues)];
        const char *fmt = kTexts[random() % std::size(kTexts)];
        ASSERT_EQ(bufferAfter(true, room, fmt, text.c_str(), value), bufferAfter(false, room, fmt, text.c_str(), value)) << fmt;
        fmt = kNumbers[random() % std::size(kNumbers)];
        ASSERT_EQ(bufferAfter(true, room, fmt, value, text.c_str()), bufferAfter(false, room, fmt, value, text.c_str())) << fmt;
    }
    const char *none = nullptr;
    EXPECT_EQ(bufferAfter(true, 16, "%s", none), bufferAfter(false, 16, "%s", none));
}

}  // namespace
