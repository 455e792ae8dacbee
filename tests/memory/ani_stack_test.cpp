#include <vel_infra/memory/ani_stack.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/memory_support.h"

namespace {

using memory_support::expectRaised;
using memory_support::Random;

using StackTest = memory_support::CleanErrors;

TEST_F(StackTest, AgreesWithAModelOverRandomPushesAndPops) {
    for (CodUint32 capacity : {0u, 1u, 7u, 8u, 9u, 100u, 1000u, 4096u}) {
        Random random(capacity + 1);
        std::vector<CodUint64> area(capacity / 8 + 1);
        auto *base = reinterpret_cast<CodUint8 *>(area.data());
        CodStack stack;
        ASSERT_EQ(codStackInit(&stack, base, capacity), COD_SUCCESS);
        std::vector<std::pair<CodUint32, CodUint32>> pushed;  // where and how much
        CodUint64 top = 0, peak = 0;
        for (int step = 0; step < 3000; step++) {
            const CodUint32 kSizes[] = {0,           1,           7,           8,          9, random.below(200), capacity, capacity + 1,
                                        0x7FFFFFFFu, 0xFFFFFFF8u, 0xFFFFFFF9u, 0xFFFFFFFFu};
            if (random.oneIn(4)) {
                std::size_t left = random.below(static_cast<CodUint32>(pushed.size()) + 1);
                CodUint32 mark = left < pushed.size() ? pushed[left].first : codStackMark(&stack);
                codStackPop(&stack, mark);
                pushed.resize(left);
                top = mark;
                codStackPop(&stack, static_cast<CodUint32>(top) + 8 + random.below(1000));
            } else {
                CodUint32 size = random.pick(kSizes);
                CodUint64 rounded = (CodUint64{size} + 7) / 8 * 8;
                void *out = &out;
                if (top + rounded <= capacity) {
                    ASSERT_EQ(codStackPush(&stack, size, &out), COD_SUCCESS) << size;
                    ASSERT_EQ(out, base + top);
                    std::fill_n(static_cast<CodUint8 *>(out), size, static_cast<CodUint8>(pushed.size()));
                    pushed.emplace_back(top, size);
                    top += rounded;
                    peak = std::max(peak, top);
                } else {
                    ASSERT_EQ(codStackPush(&stack, size, &out), COD_ERROR) << size;
                    EXPECT_EQ(out, nullptr);
                    expectRaised(109, "work stack overflow, try to push " + std::to_string(static_cast<CodInt32>(size)) + " bytes");
                }
            }
            ASSERT_EQ(stack.top, top);
            ASSERT_EQ(codStackMark(&stack), top);
            ASSERT_EQ(stack.peak, peak);
        }
        for (std::size_t i = 0; i < pushed.size(); i++) {
            auto [at, size] = pushed[i];
            EXPECT_TRUE(std::all_of(base + at, base + at + size, [&](CodUint8 byte) { return byte == static_cast<CodUint8>(i); }));
        }
    }
}

TEST_F(StackTest, RefusesUnalignedAndNullMemory) {
    alignas(8) CodUint8 area[64];
    CodStack stack;
    void *out = nullptr;
    for (CodUint32 shift : {1u, 4u, 7u}) {
        EXPECT_EQ(codStackInit(&stack, area + shift, 16), COD_ERROR);
        EXPECT_EQ(codGetErrorCode(), static_cast<CodError>(ERR_CMM_INVALID_PARAMETER));
        codCleanError();
    }
    ASSERT_EQ(codStackInit(&stack, area, 64), COD_SUCCESS);
    const CodResult kResults[] = {codStackInit(nullptr, area, 8), codStackInit(&stack, nullptr, 8), codStackPush(nullptr, 8, &out),
                                  codStackPush(&stack, 8, nullptr)};
    for (CodResult result : kResults) {
        EXPECT_EQ(result, COD_ERROR);
    }
    EXPECT_EQ(codGetErrorStackDepth(), 4u);
    EXPECT_STREQ(codGetErrorMsg3(true, "|"), "VEL-00006 null pointer|VEL-00006 null pointer|VEL-00006 null pointer|VEL-00006 null pointer");
    codStackPop(nullptr, 0);
}

}  // namespace
