#pragma once

// What the container and algorithm tests share: repeatable random numbers and operations, expected errors, memory that is watched.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/memory/ani_allocator.h>

namespace collection_support {

struct Random {
    explicit Random(std::uint64_t seed) : next(seed) {}

    std::uint32_t below(std::uint32_t limit) {
        return static_cast<std::uint32_t>(next() % limit);
    }
    bool oneIn(std::uint32_t n) {
        return below(n) == 0;
    }
    // The memory ends with the last byte, so that the address sanitizer sees every access behind it.
    std::vector<CodUint8> bytes(std::size_t size) {
        std::vector<CodUint8> list(size);
        std::generate(list.begin(), list.end(), [&] { return static_cast<CodUint8>(next()); });
        return list;
    }

    std::mt19937_64 next;
};

// An operation of a random sequence, drawn in proportion to its weight.
struct Operation {
    double weight;
    std::function<void()> run;
};

inline void runOneOf(const std::vector<Operation> &operations, Random &random) {
    std::vector<double> weights;
    std::transform(operations.begin(), operations.end(), std::back_inserter(weights), [](const Operation &o) { return o.weight; });
    std::size_t drawn = std::discrete_distribution<std::size_t>(weights.begin(), weights.end())(random.next);
    SCOPED_TRACE(testing::Message() << "operation " << drawn);
    operations[drawn].run();
}

// Runs the call and expects it to fail with this code as the newest error, with exactly this text when one is given.
template <typename Call>
void expectError(CodError code, std::string_view text, Call call) {
    codCleanError();
    EXPECT_EQ(call(), COD_ERROR);
    EXPECT_EQ(codGetErrorCode(), code);
    EXPECT_TRUE(text.empty() || codGetLastErrorMsg() == text) << codGetLastErrorMsg();
    codCleanError();
}

// System memory, filled with rubbish, behind an allocator record that knows the size of every live block.
struct WatchedMemory : CodMemAlloc {
    WatchedMemory() : CodMemAlloc{take, grow, give} {}
    WatchedMemory(const WatchedMemory &) = delete;
    WatchedMemory &operator=(const WatchedMemory &) = delete;
    ~WatchedMemory() {
        std::for_each(live.begin(), live.end(), [](const auto &block) { codSysFree(block.first); });
    }

    static auto &liveOf(CodMemAlloc *owner) {
        return static_cast<WatchedMemory *>(owner)->live;
    }
    static CodResult take(CodMemAlloc *owner, CodUint32 size, void **out) {
        COD_TRY(codSysAlloc(size, out));
        std::memset(*out, 0xdd, size);
        liveOf(owner)[*out] = size;
        return COD_SUCCESS;
    }
    static CodResult grow(CodMemAlloc *owner, void **ptr, CodUint32 oldSize, CodUint32 newSize, CodBool keepOldData) {
        EXPECT_EQ(liveOf(owner).at(*ptr), oldSize);
        void *old = *ptr;
        COD_TRY(codSysExtend(ptr, oldSize, newSize, keepOldData));
        liveOf(owner).erase(old);
        liveOf(owner)[*ptr] = newSize;
        return COD_SUCCESS;
    }
    static void give(CodMemAlloc *owner, void *ptr) {
        EXPECT_EQ(liveOf(owner).erase(ptr), 1u) << "a block that is not live was freed";
        codSysFree(ptr);
    }

    std::map<void *, CodUint32> live;
};

}  // namespace collection_support
