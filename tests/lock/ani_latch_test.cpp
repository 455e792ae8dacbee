#include <vel_infra/lock/ani_latch.h>

#include <array>
#include <atomic>
#include <map>
#include <sstream>

#include "support/memory_support.h"

namespace {
using namespace memory_support;
const auto rowOf = [](CodUint32 type) -> SpinLockAttr & { return *const_cast<SpinLockAttr *>(getSpinLockAttr(type)); };
// The sleepers of this type run a step of the test, at the n-th sleep from now, and sleep then.
constexpr CodUint32 kType = LOCK_TYPE_HEAP_DICT;
std::function<void()> onSleep = [] {};
const auto kHook = rowOf(kType).sleep = [] { onSleep(), spinSleepDefault(); };
const auto atSleep = [](int n, auto step) { onSleep = [n, step]() mutable { --n == 0 ? step() : void(); }; };

TEST(SpinLockTest, WaitersSleepAsReportedAndBoundedAttemptsDoNot) {
    for (CodUint32 type = 0; type < __LOCK_TYPE_COUNT__; type++) {
        rowOf(type).sleepTimes = type == 9 ? 5000000000 : type == 5 ? 2 : 0;
    }
    spinSleep(227), spinSleep(0xFFFFFFFF);
    for (CodUint32 spinCount : {0u, 1u, 3u, 128u}) {
        SpinLock lock{};
        Latch latch{};
        CodUint32 before = spinGetTlsSleeps();
        rowOf(kType).spinCount = spinCount;
        EXPECT_TRUE(!spinTryLockTimes(&lock, kType, 0) && spinTryLockTimes(&lock, kType, 1));
        EXPECT_FALSE(spinTryLock(&lock) || spinTryLockTimes(&lock, kType, 1) || spinTryLockTimes(&lock, kType, 3000));
        spinUnlock(nullptr), latchExclusive(&latch, 1, kType);
        EXPECT_EQ(spinGetTlsSleeps(), before);
        atSleep(3, [&] { spinUnlock(&lock); });
        spinLock(&lock, kType);
        EXPECT_FALSE(latchSharedTimeout(&latch, kType, 4) || latchExclusiveTimeout(&latch, 1, kType, 4));
        EXPECT_EQ(spinGetTlsSleeps(), before + 3 + 5 + 5);
        atSleep(3, [&] { unLatch(&latch, kType); });
        EXPECT_TRUE(latchSharedTimeout(&latch, kType, 0xFFFFFFFF)) << "the greatest limit does not wrap";
        unLatch(&latch, kType), spinUnlock(&lock);
    }
    SpinReportRow rows[5] = {};
    EXPECT_TRUE(spinReport(nullptr, 0) == 4 && spinReport(rows, 2) == 4 && rows[2].name == nullptr && spinReport(rows, 5) == 4);
    std::string report;
    std::for_each(rows, rows + 4, [&](const auto &row) { report += row.name + (" " + std::to_string(row.sleepTimes)) + "; "; });
    EXPECT_EQ(report, "SCN GENERATOR 5000000000; HEAP DICT 64; OTHERS 2; DIRTY BLOCK ENQUE 2; ");
}

// One call each; true: done, or taken. "?" is an attempt; "0" a limit of 0, and its writer's number is one more.
thread_local CodUint16 writer = 7;
const std::map<std::string, bool (*)(Latch *)> kCalls = {
    {"S", [](Latch *latch) { return latchShared(latch, kType), true; }},
    {"S?", [](Latch *latch) { return tryLatchShared(latch, kType); }},
    {"S0", [](Latch *latch) { return latchSharedTimeout(latch, kType, 0); }},
    {"X", [](Latch *latch) { return latchExclusive(latch, writer, kType), true; }},
    {"X0", [](Latch *latch) { return latchExclusiveTimeout(latch, static_cast<CodUint16>(writer + 1), kType, 0); }},
    {"re", [](Latch *latch) { return reentrantLatchExclusive(latch, writer, kType), true; }},
    {"mark", [](Latch *latch) { return latch->status = LATCH_IX, true; }},
    {"IX", [](Latch *latch) { return latchIntentExclusive(latch, writer, kType), true; }},
    {"un", [](Latch *latch) { return unLatch(latch, kType), true; }},
    {"reun", [](Latch *latch) { return reentrantUnLatch(latch, kType), true; }}};

// Status, latchXTimes, sharedCount, xhid ("-": none).
std::string stateOf(const Latch &latch) {
    std::string holder = latch.xhid == LATCH_NO_HOLDER ? "-" : std::to_string(latch.xhid), shared = std::to_string(latch.sharedCount);
    return std::array{"Idle/", "S/", "IX/", "X/"}.at(latch.status) + std::to_string(latch.latchXTimes) + "/" + shared + "/" + holder;
}

// Makes calls in turn: "!" stands before one that must not succeed, "[seen:a,b]" behind one that waits in the state "seen" and meets a
// and b at its first sleep, "=state" behind one that ends so.
void run(Latch *latch, const std::string &script, char separator = ' ') {
    std::istringstream words(script);
    for (std::string word; std::getline(words, word, separator);) {
        SCOPED_TRACE(word);
        std::size_t name = word[0] == '!', end = word.find_first_of("[="), colon = word.find(':'), close = word.find(']');
        bool isMet = close > word.size();
        atSleep(!isMet, [=, &isMet, seen = word.substr(end + 1, colon - end - 1), calls = word.substr(colon + 1, close - colon - 1)] {
            isMet = stateOf(*latch) == seen;
            run(latch, "!S?," + calls, ',');
        });
        EXPECT_EQ(kCalls.at(word.substr(name, end - name))(latch), name == 0);
        std::size_t after = word.find('=', close < word.size() ? close : 0);
        EXPECT_EQ(stateOf(*latch), after < word.size() ? word.substr(after + 1) : stateOf(*latch));
        EXPECT_TRUE(isMet && latchIsIntentX(latch) == (latch->status == LATCH_IX) && latch->lock.word == 0);
    }
}

TEST(LatchDeathTest, EachCallChangesTheFieldsAsStated) {
    Latch latch{{9}, 9, 9, 9, 9}, full{{}, LATCH_S, 0, 65534, 65535}, nested{{}, LATCH_X, 254, 0, 7};
    latchInit(&latch);
    run(&latch,
        "un=Idle/0/0/- S=S/0/1/- S?=S/0/2/- S0=S/0/3/- !X0=S/0/3/- un=S/0/2/- reun=S/0/1/- mark !S?=IX/0/1/- un=IX/0/0/- IX=X/1/0/7 "
        "!S?=X/1/0/7 un=Idle/0/0/- X0=X/1/0/8 un=Idle/0/0/- X=X/1/0/7 re=X/2/0/7 reun=X/1/0/7 un=Idle/0/0/- re=X/1/0/7 re=X/2/0/7 "
        "reun=X/1/0/7 reun=Idle/0/0/7 re=X/1/0/7 reun=Idle/0/0/7 S=S/0/1/7 re[IX/0/1/7:un]=X/1/0/7 un=Idle/0/0/- X S[X/1/0/7:un]=S/0/1/- "
        "reun=Idle/0/0/- X0 X[X/1/0/8:un]=X/1/0/7 !S0[X/1/0/7:]=X/1/0/7 !X0[X/1/0/7:]=X/1/0/7 un X0 re[X/1/0/8:un]=X/1/0/7 un S mark "
        "!S0[IX/0/1/-:]=IX/0/1/- !X0[IX/0/1/-:]=IX/0/1/- IX[IX/0/1/-:un]=X/1/0/7 un S S !X0[IX/0/2/-:un]=S/0/1/- "
        "X0[IX/0/1/-:un=IX/0/0/-]=X/1/0/8 un S S X[IX/0/2/-:un,reun=IX/0/0/-]=X/1/0/7 un");
    run(&full, "S? !S? !S0 !X0=S/0/65535/- S[S/0/65535/-:un]=S/0/65535/- un=S/0/65534/-");
    run(&nested, "re=X/255/0/7");
    EXPECT_DEATH(reentrantLatchExclusive(&nested, 7, kType), "");
}

TEST(LatchTest, ThreadsInAnyMixExcludeEachOther) {
    const std::string kTakes[] = {"X", "X0", "re", "S", "S?", "S0"};
    for (CodUint32 threads : {2u, 3u, 8u}) {
        Latch latch{};
        SpinLock lock{};
        int first = 0, second = 0, writes = 0, torn = 0;
        std::atomic<bool> done = false;
        onSleep = [] {};
        onThreads(threads, [&](CodUint32 id) {
            Random random(writer = static_cast<CodUint16>(2 * id));
            // The first one only writes; readers come until it has done.
            for (int i = 0; id == 1 ? i < 20000 : !done; i++) {
                const std::string &take = kTakes[random.below(id == 1 ? 3 : 6)];
                if (kCalls.at(take)(&latch)) {
                    bool isNested = take == "re" && kCalls.at(take)(&latch) && kCalls.at("reun")(&latch);
                    int isWriter = isNested || take[0] == 'X', isTorn = first != second;
                    isWriter ? first++ : 0;
                    random.oneIn(16) ? std::this_thread::yield() : void();
                    isWriter ? second++ : 0;
                    kCalls.at(isNested || (!isWriter && random.oneIn(2)) ? "reun" : "un")(&latch);
                    random.oneIn(2) || !spinTryLock(&lock) ? spinLock(&lock, kType) : void();
                    writes += isWriter, torn += isTorn;
                    spinUnlock(&lock);
                }
            }
            done = done || id == 1;
        });
        EXPECT_TRUE(stateOf(latch).starts_with("Idle/0/0/") && first == writes && torn == 0) << stateOf(latch);
    }
}
}  // namespace
