#undef COD_LOCK_ORDER_CHECK
#define COD_LOCK_ORDER_CHECK

#include <vel_infra/lock/ani_latch.h>

#include "support/memory_support.h"

constexpr int kFirst = __LINE__ + 1;  // the line of the first; the even ones wait
bool (*const kTakes[])(Latch *, CodUint32) = {[](Latch *latch, CodUint32 type) { return spinLock(&latch->lock, type), true; },
                                              [](Latch *latch, CodUint32 type) { return spinTryLockTimes(&latch->lock, type, 1); },
                                              [](Latch *latch, CodUint32 type) { return reentrantLatchExclusive(latch, 1, type), true; },
                                              [](Latch *latch, CodUint32 type) { return latchExclusiveTimeout(latch, 1, type, 1); },
                                              [](Latch *latch, CodUint32 type) { return latchExclusive(latch, 1, type), true; },
                                              [](Latch *latch, CodUint32 type) { return tryLatchShared(latch, type); },
                                              [](Latch *latch, CodUint32 type) { return latchShared(latch, type), true; },
                                              [](Latch *latch, CodUint32 type) { return latchSharedTimeout(latch, type, 1); }};

TEST(LockOrderTest, TypesMetInBothOrdersAreLoggedOnce) {
    using namespace memory_support;
    auto place = [](int kind) { return "ani_lock_order_test.cpp:" + std::to_string(kFirst + kind); };
    auto leave = [](int kind, Latch *it) { kind < 2 ? spinUnlock(&it->lock) : kind == 2 ? reentrantUnLatch(it, 0) : unLatch(it, 0); };
    auto takeBoth = [&](int outer, CodUint32 outerType, int inner, CodUint32 innerType) {
        Latch a{}, b{};
        EXPECT_TRUE(kTakes[outer](&a, outerType) && kTakes[inner](&b, innerType));
        outerType % 4 == 0 ? (leave(inner, &b), leave(outer, &a)) : (leave(outer, &a), leave(inner, &b));
    };
    codSetLogCallback(keepLogged);
    std::thread(takeBoth, 0, LOCK_TYPE_LRU, 2, LOCK_TYPE_VM).join();
    takeBoth(4, LOCK_TYPE_VM, 6, LOCK_TYPE_LRU), takeBoth(4, LOCK_TYPE_VM, 6, LOCK_TYPE_LRU), takeBoth(0, 0, 0, 500);
    ASSERT_EQ(logged.size(), 1u);
    EXPECT_EQ(logged[0].substr(logged[0].rfind('|')), "|lock order inverted: \"LRU\" taken at " + place(6) +
                                                          " while \"VM\" is held since " + place(4) + "; \"VM\" was taken at " + place(2) +
                                                          " while \"LRU\" was held");
    for (CodUint32 kinds = 0, type = 60; kinds < 64; kinds++, type += 2) {
        takeBoth(static_cast<int>(kinds / 8), type, kinds % 8, type + 1), takeBoth(0, type + 1, 0, type);
        EXPECT_TRUE(logged.size() == 2 + kinds / 2 && codLockOrderInversions() == logged.size() && logged.back().starts_with("5|0|"));
    }
    codResetLogCallback();
}
