#pragma once

// What the tests of errors, diagnostics, locks and memory share.

#include <unistd.h>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vel_infra/adr/ani_log_base.h>
#include <vel_infra/error/ani_error_base.h>

namespace memory_support {

class Random {
public:
    explicit Random(std::uint64_t seed) : engine_(seed) {}
    std::uint32_t below(std::uint32_t limit) {
        return static_cast<std::uint32_t>(engine_() % limit);
    }
    bool oneIn(std::uint32_t n) {
        return below(n) == 0;
    }
    template <typename Items>
    auto &pick(Items &items) {
        return items[below(static_cast<std::uint32_t>(std::size(items)))];
    }

private:
    std::mt19937_64 engine_;
};

// Expects that exactly one error stands on the stack, with this text where one is given, and clears it.
inline void expectRaised(CodError code, const std::string &text = {}) {
    EXPECT_EQ(codGetErrorStackDepth(), 1u);
    EXPECT_EQ(codGetErrorCode(), code) << codGetErrorMsg2();
    if (!text.empty()) {
        EXPECT_EQ(std::string(codGetLastErrorMsg()), text);
    }
    codCleanError();
}

// A call that fails, with the error that it raises.
struct Refusal {
    std::function<CodResult()> call;
    CodError code;
    std::string text = {};
};

inline void expectRefusals(const std::vector<Refusal> &rows) {
    for (std::size_t i = 0; i < rows.size(); i++) {
        SCOPED_TRACE(testing::Message() << "row " << i);
        EXPECT_EQ(rows[i].call(), COD_ERROR);
        expectRaised(rows[i].code, rows[i].text);
    }
}

// Runs body(id) on as many threads at once, with ids from 1.
template <typename Body>
void onThreads(CodUint32 count, Body body) {
    std::vector<std::thread> threads;
    for (CodUint32 id = 1; id <= count; id++) {
        threads.emplace_back([&body, id] { body(id); });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

inline std::vector<std::string> logged;
inline void keepLogged(CodLogLevel level, CodInt32 code, const char *file, const char *function, CodInt32 line, const char *fmt, ...) {
    char text[COD_ERROR_STACK_TEXT_SIZE];
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(text, sizeof(text), fmt, args);
    va_end(args);
    logged.push_back(std::to_string(level) + "|" + std::to_string(code) + "|" + file + "|" + function + "|" + std::to_string(line) + "|" +
                     text);
}

// Every test starts and ends with a thread that has no error and with the logger as it was at first.
class CleanState : public testing::Test {
protected:
    CleanState() {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        reset();
    }
    ~CleanState() override {
        reset();
    }

private:
    static void reset() {
        logged.clear();
        codSetLogLevel(COD_LOG_LEVEL_ERROR);
        codResetLogCallback();
        codUnsetIgnoreError();
        codCleanError();
    }
};

// A file name of this process in the temporary folder; the file goes with the object.
class TempFile {
public:
    explicit TempFile(const std::string &name) : path(testing::TempDir() + name + "." + std::to_string(getpid())) {
        std::remove(path.c_str());
    }
    ~TempFile() {
        std::remove(path.c_str());
    }
    TempFile(const TempFile &) = delete;
    TempFile &operator=(const TempFile &) = delete;
    std::string content() const {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    const std::string path;
};

}  // namespace memory_support
