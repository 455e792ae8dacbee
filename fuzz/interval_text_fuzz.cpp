#include <cstdlib>
#include <string>
#include <vector>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/utils/ani_interval.h>

// The input as both kinds of intervals. What reads is written into rooms that grow until one holds it, and reads back; the wide text too.

// The text and its terminator.
static std::string written(auto interval, auto write, std::size_t terminator) {
    std::vector<char> exact(1);
    CodText text = {exact.data(), 0, 0};
    while (write(interval, &text, static_cast<CodUint32>(exact.size())) != COD_SUCCESS && exact.size() < 100) {
        std::vector<char>(exact.size() + 1).swap(exact);
        text.str = exact.data();
    }
    return text.len + terminator == exact.size() ? std::string(exact.data(), exact.size()) : "";
}

static void readAndWrite(std::vector<char> input, auto interval, auto read, auto write, auto writeWide) {
    CodText text = {input.data(), static_cast<CodUint32>(input.size()), 0};
    if (read(&text, &interval) == COD_SUCCESS) {
        auto again = ~interval;
        std::string narrow = written(interval, write, 1), wide = written(interval, writeWide, 2), widened;
        for (char c : narrow) {
            widened += {c, 0};
        }
        text = {narrow.data(), static_cast<CodUint32>(narrow.size() - 1), 0};
        if (narrow.empty() || narrow.back() != 0 || wide != widened || read(&text, &again) != COD_SUCCESS || again != interval) {
            std::abort();
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size) {
    readAndWrite({data, data + size}, CodYMInterval(), codText2YMInterval, codYMInterval2Text, codYMInterval2NText);
    readAndWrite({data, data + size}, CodDSInterval(), codText2DSInterval, codDSInterval2Text, codDSInterval2NText);
    return codCleanError(), 0;
}
