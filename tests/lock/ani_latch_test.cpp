#include <vel_infra/lock/ani_latch.h>

#include <atomic>
#include <map>
#include <regex>
#include <sstream>

#include <vel_infra/utils/ani_clock.h>

#include "support/memory_support.h"

namespace {

using namespace memory_support;

SpinLockAttr &rowOf(CodUint32 type) {
    return *const_cast<SpinLockAttr *>(getSpinLockAttr(type));
}

// The sleepers of this type run a step of the test, at the n-th sleep from now, and sleep then.
constexpr CodUint32 kType = LOCK_TYPE_HEAP_DICT;
std::function<void()> onSleep = [] {};
const auto kHook = rowOf(kType).sleep = [] { onSleep(), spinSleepDefault(); };
void atSleep(int n, std::function<void()> step) {
    onSleep = [n, step]() mutable { --n == 0 ? step() : void(); };
}

TEST(SpinLockTest, SleepsAreCountedForTypeAndThreadAndReported) {
    for (CodUint32 type : {0u, 43u, 226u, 227u, 0xFFFFFFFFu}) {
        CodUint32 row = type > 226 ? 0 : type, before = spinGetTlsSleeps();
        rowOf(row).sleepTimes = row;
        CodInstant start = codInstantNow();
        spinSleep(type);
        EXPECT_GE(codInstantNow() - start, 100000);
        EXPECT_TRUE(rowOf(row).sleepTimes == row + 1 && rowOf(row).spinCount == 128 && spinGetTlsSleeps() == before + 1) << type;
    }
    for (CodUint32 type = 0; type < __LOCK_TYPE_COUNT__; type++) {
        rowOf(type).sleepTimes = type == 9 ? 5000000000 : type == 5 || type == 226 ? 3 : type == 0;
    }
    SpinReportRow rows[5] = {};
    EXPECT_EQ(spinReport(nullptr, 0), 4u);
    EXPECT_EQ(spinReport(rows, 3), 4u);
    EXPECT_EQ(rows[3].name, nullptr);
    EXPECT_EQ(spinReport(rows, 5), 4u);
    for (int i = 0; CodUint32 type : {9, 5, 226, 0}) {
        EXPECT_TRUE(rows[i].type == type && rows[i].name == rowOf(type).name && rows[i].sleepTimes == rowOf(type).sleepTimes) << i;
        i++;
    }
    EXPECT_EQ(rows[4].name, nullptr);
}

TEST(SpinLockTest, WaitersSleepUntilFreeAndBoundedAttemptsNever) {
    for (CodUint32 spinCount : {0u, 1u, 3u, 128u}) {
        SpinLock lock{};
        Latch latch{};
        rowOf(kType).spinCount = spinCount;
        CodInt64 before = rowOf(kType).sleepTimes;
        for (CodUint32 times : {0u, 1u, 2u, 3000u}) {
            EXPECT_EQ(spinTryLockTimes(&lock, kType, times), times > 0);
            EXPECT_EQ(spinTryLock(&lock), times == 0);
            EXPECT_FALSE(spinTryLockTimes(&lock, kType, times));
            spinUnlock(&lock);
        }
        spinLock(&lock, kType);
        latchExclusive(&latch, 1, kType);
        EXPECT_EQ(rowOf(kType).sleepTimes, before);
        atSleep(3, [&] { spinUnlock(&lock), spinUnlock(nullptr); });
        spinLock(&lock, kType);
        atSleep(3, [&] { unLatch(&latch, kType); });
        latchShared(&latch, kType);
        EXPECT_EQ(rowOf(kType).sleepTimes, before + 6);
    }
}

// One call each; true: done, or taken. A limit is 0, and its writer's number one more.
thread_local CodUint16 writer = 7;
const std::map<std::string, bool (*)(Latch *)> kCalls = {
    {"shared", [](Latch *latch) { return latchShared(latch, kType), true; }},
    {"try", [](Latch *latch) { return tryLatchShared(latch, kType); }},
    {"sharedLimit", [](Latch *latch) { return latchSharedTimeout(latch, kType, 0); }},
    {"exclusive", [](Latch *latch) { return latchExclusive(latch, writer, kType), true; }},
    {"exclusiveLimit", [](Latch *latch) { return latchExclusiveTimeout(latch, static_cast<CodUint16>(writer + 1), kType, 0); }},
    {"reentrant", [](Latch *latch) { return reentrantLatchExclusive(latch, writer, kType), true; }},
    {"mark", [](Latch *latch) { return latch->status = LATCH_IX, true; }},
    {"intent", [](Latch *latch) { return latchIntentExclusive(latch, writer, kType), true; }},
    {"leave", [](Latch *latch) { return unLatch(latch, kType), true; }},
    {"reentrantLeave", [](Latch *latch) { return reentrantUnLatch(latch, kType), true; }}};

// Status, latchXTimes, sharedCount, xhid ("-": none).
std::string stateOf(const Latch &latch) {
    const char *kStatus[] = {"Idle/", "S/", "IX/", "X/"};
    std::string holder = latch.xhid == LATCH_NO_HOLDER ? "-" : std::to_string(latch.xhid);
    return kStatus[latch.status] + std::to_string(latch.latchXTimes) + "/" + std::to_string(latch.sharedCount) + "/" + holder;
}

// Makes calls in turn: "!" stands before one that must not succeed, "[seen:a,b]" behind one that waits in the state "seen" and meets a
// and b at its first sleep, "=state" behind one that ends so.
void run(Latch *latch, const std::string &script) {
    static const std::regex kWord("(!?)(\\w+)(\\[(.*):(.*)\\])?(=(.*))?");
    std::istringstream words(script);
    std::smatch part;
    for (std::string word; words >> word && std::regex_match(word, part, kWord);) {
        SCOPED_TRACE(word);
        atSleep(part[3].matched, [latch, seen = part[4].str(), calls = std::regex_replace(part[5].str(), std::regex(","), " ")] {
            EXPECT_EQ(stateOf(*latch), seen);
            run(latch, "!try " + calls);
        });
        EXPECT_EQ(kCalls.at(part[2])(latch), part[1].length() == 0);
        EXPECT_TRUE(!part[6].matched || stateOf(*latch) == part[7]) << stateOf(*latch);
        EXPECT_TRUE(latchIsIntentX(latch) == (latch->status == LATCH_IX) && latch->lock.word == 0);
    }
}

TEST(LatchDeathTest, EachCallChangesTheFieldsAsStated) {
    Latch latch{{9}, 9, 9, 9, 9}, full{{}, LATCH_S, 0, 65534, 65535}, nested{{}, LATCH_X, 254, 0, 7};
    latchInit(&latch);
    run(&latch,
        "leave=Idle/0/0/- shared=S/0/1/- try=S/0/2/- sharedLimit=S/0/3/- !exclusiveLimit=S/0/3/- leave=S/0/2/- reentrantLeave=S/0/1/- mark "
        "!try=IX/0/1/- leave=IX/0/0/- intent=X/1/0/7 !try=X/1/0/7 leave=Idle/0/0/- exclusiveLimit=X/1/0/8 leave=Idle/0/0/- "
        "exclusive=X/1/0/7 reentrant=X/2/0/7 reentrantLeave=X/1/0/7 leave=Idle/0/0/- reentrant=X/1/0/7 reentrant=X/2/0/7 "
        "reentrantLeave=X/1/0/7 reentrantLeave=Idle/0/0/7 reentrant=X/1/0/7 reentrantLeave=Idle/0/0/7 shared=S/0/1/7 "
        "reentrant[IX/0/1/7:leave]=X/1/0/7 leave=Idle/0/0/- exclusive shared[X/1/0/7:leave]=S/0/1/- reentrantLeave=Idle/0/0/- "
        "exclusiveLimit exclusive[X/1/0/8:leave]=X/1/0/7 !sharedLimit[X/1/0/7:]=X/1/0/7 !exclusiveLimit[X/1/0/7:]=X/1/0/7 leave "
        "exclusiveLimit reentrant[X/1/0/8:leave]=X/1/0/7 leave shared mark !sharedLimit[IX/0/1/-:]=IX/0/1/- "
        "!exclusiveLimit[IX/0/1/-:]=IX/0/1/- intent[IX/0/1/-:leave]=X/1/0/7 leave shared shared !exclusiveLimit[IX/0/2/-:leave]=S/0/1/- "
        "exclusiveLimit[IX/0/1/-:leave=IX/0/0/-]=X/1/0/8 leave shared shared exclusive[IX/0/2/-:leave,reentrantLeave=IX/0/0/-]=X/1/0/7");
    run(&full, "try=S/0/65535/- !try !sharedLimit !exclusiveLimit=S/0/65535/- shared[S/0/65535/-:leave]=S/0/65535/- leave=S/0/65534/-");
    run(&nested, "reentrant=X/255/0/7");
    EXPECT_DEATH(reentrantLatchExclusive(&nested, 7, kType), "");
}

TEST(LatchTest, LimitsCountTheSleepsOfTheThread) {
    Latch read{}, written{};
    latchShared(&read, kType);
    latchExclusive(&written, 1, kType);
    for (CodUint32 limit : {0u, 1u, 6u}) {
        CodUint32 before = spinGetTlsSleeps();
        EXPECT_FALSE(latchSharedTimeout(&written, kType, limit) || latchExclusiveTimeout(&written, 2, kType, limit));
        EXPECT_FALSE(latchExclusiveTimeout(&read, 2, kType, limit));
        EXPECT_EQ(spinGetTlsSleeps(), before + 3 * (limit + 1));
    }
    atSleep(5, [&] { unLatch(&written, kType); });
    EXPECT_TRUE(latchSharedTimeout(&written, kType, 0xFFFFFFFFu)) << "the greatest limit does not wrap";
}

TEST(LatchTest, ThreadsInAnyMixExcludeEachOther) {
    const std::string kTakes[] = {"shared", "try", "sharedLimit", "exclusive", "exclusiveLimit", "reentrant"};
    for (CodUint32 threads : {2u, 3u, 8u}) {
        Latch latch{};
        SpinLock lock{};
        CodUint32 spun = 0, first = 0, second = 0;
        std::atomic<CodUint32> writes = 0;
        onSleep = [] {};
        onThreads(threads, [&](CodUint32 id) {
            Random random(writer = static_cast<CodUint16>(2 * id));
            for (int i = 0; i < 4000; i++) {
                while (i % 3 != 0 && !(i % 3 == 1 ? spinTryLock(&lock) : spinTryLockTimes(&lock, kType, 9))) {
                }
                i % 3 == 0 ? spinLock(&lock, kType) : void();
                spun++;
                spinUnlock(&lock);
                const std::string &take = random.pick(kTakes);
                if (kCalls.at(take)(&latch)) {
                    bool isWriter = take[0] == 'e' || take[0] == 'r', isNested = take[0] == 'r' && kCalls.at(take)(&latch);
                    EXPECT_EQ(first, second);
                    first += isWriter;
                    random.oneIn(16) ? std::this_thread::yield() : void();
                    second += isWriter;
                    writes += isWriter;
                    (!isNested || kCalls.at("reentrantLeave")(&latch)) &&
                        kCalls.at(isNested || (!isWriter && random.oneIn(2)) ? "reentrantLeave" : "leave")(&latch);
                }
            }
        });
        EXPECT_TRUE(spun == 4000 * threads && first == writes && stateOf(latch).starts_with("Idle/0/0/")) << stateOf(latch);
    }
}

TEST(LatchTest, ReadersWithoutEndDoNotStarveAWriter) {
    Latch latch{};
    std::atomic<long> reads = 0, writes = 0;
    onThreads(5, [&](CodUint32 id) {
        while (writes < 300) {
            bool isWriter = id == 1 && reads > 0;
            isWriter ? latchExclusive(&latch, 1, kType) : latchShared(&latch, kType);
            (isWriter ? writes : reads)++;
            unLatch(&latch, kType);
        }
    });
}

}  // namespace
