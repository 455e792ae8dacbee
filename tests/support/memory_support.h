#pragma once

// What the tests of errors, diagnostics, locks and memory share.

#include <unistd.h>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include <gtest/gtest.h>

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

// Expects that exactly one error stands on the stack, and clears it.
inline void expectRaised(CodError code, const std::string &text) {
    EXPECT_EQ(codGetErrorStackDepth(), 1u);
    EXPECT_EQ(codGetErrorCode(), code);
    EXPECT_EQ(std::string(codGetLastErrorMsg()), text);
    codCleanError();
}

// Every test starts and ends with a thread that has no error.
class CleanErrors : public testing::Test {
protected:
    CleanErrors() {
        reset();
    }
    ~CleanErrors() override {
        reset();
    }

private:
    static void reset() {
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
