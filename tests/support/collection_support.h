#pragma once

// What the container and algorithm tests share: repeatable random numbers and bytes, expectations of errors, an accounting allocator.

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

class Random {
public:
    explicit Random(std::uint64_t seed) : engine_(seed) {}

    std::uint32_t below(std::uint32_t limit) {
        return static_cast<std::uint32_t>(engine_() % limit);
    }
    CodUint8 byte() {
        return static_cast<CodUint8>(engine_());
    }
    bool oneIn(std::uint32_t n) {
        return below(n) == 0;
    }
    // The memory ends with the last byte, so that the address sanitizer sees every access behind it.
    std::vector<CodUint8> bytes(std::size_t size) {
        std::vector<CodUint8> list(size);
        std::generate(list.begin(), list.end(), [&] { return byte(); });
        return list;
    }

private:
    std::mt19937_64 engine_;
};

// An operation of a random sequence, drawn in proportion to its weight.
struct Operation {
    std::uint32_t weight;
    std::function<void()> run;
};

inline void runOneOf(const std::vector<Operation> &operations, Random &random) {
    std::uint32_t total = 0;
    for (const Operation &operation : operations) {
        total += operation.weight;
    }
    std::uint32_t drawn = random.below(total);
    for (std::size_t i = 0;; drawn -= operations[i++].weight) {
        if (drawn < operations[i].weight) {
            SCOPED_TRACE(testing::Message() << "operation " << i);
            return operations[i].run();
        }
    }
}

// Runs the call and expects it to fail with this code as the newest error, with exactly this text when one is given.
template <typename Call>
void expectError(CodError code, std::string_view text, Call call) {
    codCleanError();
    EXPECT_EQ(call(), COD_ERROR);
    EXPECT_EQ(codGetErrorCode(), code);
    if (!text.empty()) {
        EXPECT_EQ(codGetLastErrorMsg(), text);
    }
    codCleanError();
}

// Passes everything on to the system allocator and knows the size of every live block.
struct AccountingAlloc : CodMemAlloc {
    enum Kind { kFull, kWithoutExtend, kWithoutFree };

    explicit AccountingAlloc(Kind kind = kFull)
        : CodMemAlloc{take, kind == kFull ? grow : nullptr, kind == kWithoutFree ? nullptr : give} {}
    ~AccountingAlloc() {
        for (const auto &[block, size] : live) {
            codSysFree(block);
        }
    }
    AccountingAlloc(const AccountingAlloc &) = delete;
    AccountingAlloc &operator=(const AccountingAlloc &) = delete;

    std::map<void *, CodUint32> live;

private:
    static auto &liveOf(CodMemAlloc *owner) {
        return static_cast<AccountingAlloc *>(owner)->live;
    }

    static CodResult take(CodMemAlloc *owner, CodUint32 size, void **out) {
        CodResult result = codSysAlloc(size, out);
        if (result == COD_SUCCESS) {
            liveOf(owner)[*out] = size;
        }
        return result;
    }

    static CodResult grow(CodMemAlloc *owner, void **ptr, CodUint32 oldSize, CodUint32 newSize, CodBool keepOldData) {
        auto old = liveOf(owner).find(*ptr);
        EXPECT_TRUE(old != liveOf(owner).end() && old->second == oldSize) << "the block is not live, or of another size";
        CodResult result = codSysExtend(ptr, oldSize, newSize, keepOldData);
        if (result == COD_SUCCESS) {
            liveOf(owner).erase(old);
            liveOf(owner)[*ptr] = newSize;
        }
        return result;
    }

    static void give(CodMemAlloc *owner, void *ptr) {
        if (ptr != nullptr) {
            EXPECT_EQ(liveOf(owner).erase(ptr), 1u) << "a block that is not live was freed";
            codSysFree(ptr);
        }
    }
};

}  // namespace collection_support
