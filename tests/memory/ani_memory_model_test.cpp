// Pools and contexts beside a slow model of where every block and every allocation lies.

#include <vel_infra/memory/ani_memory.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <set>

#include <vel_infra/adr/ani_alert.h>

#include "support/memory_support.h"

namespace {

using memory_support::Random;
using Block = MpoolBlockCtrl *;
using Blocks = std::vector<Block>;

struct Allocation {
    CodUint8 *at;
    CodUint32 size;
    CodUint8 pattern;
};

struct Context {
    MemoryContext *real = nullptr;
    MemRsrc *account = nullptr;
    CodUint16 code = 0;
    bool mayTakeReserve = false;
    Blocks blocks, spares;
    Block current = nullptr, tail = nullptr;
    CodUint32 pos = sizeof(MemoryContext);
    CodUint64 abandoned = 0;
    std::vector<Allocation> live;
};

struct PoolSetup {
    const char *name;
    CodUint32 blockCount;
    CodUint32 blockSize;
    bool attached = false;
    bool extends = false;
    bool recycles = false;
    CodUint8 reserve = 0;
    bool lockFree = false;
};

// What the extend callback gave; null: it failed.
struct Buffer {
    MpoolBuffer *at = nullptr;
    CodUint64 size = 0;
};

Blocks chainOf(Block head) {
    Blocks chain;
    for (; head != nullptr && chain.size() < 100000; head = head->next) {
        chain.push_back(head);
    }
    return chain;
}

// Fields of packed records by value, to be compared at once.
template <typename... Fields>
std::vector<CodUint64> facts(Fields... fields) {
    return {(CodUint64)fields...};
}

CodUint64 roundUp(CodUint64 size) {
    return (size + 7) / 8 * 8;
}

class PoolWalk {
public:
    PoolWalk(const PoolSetup &setup, std::uint64_t seed)
        : setup_(setup), blockBytes_(setup.blockSize + sizeof(MpoolBlockCtrl)), random_(seed) {
        CodUint64 size = sizeof(MpoolBuffer) + CodUint64{blockBytes_} * setup.blockCount;
        if (setup.attached) {
            size += random_.below(blockBytes_);
            area_.resize(size / 8 + 1);
            EXPECT_EQ(mpoolAttach(area_.data(), size, setup.blockSize, MEM_RSRC_PQ_POOL, setup.name, this, &pool_), COD_SUCCESS);
            EXPECT_EQ(pool_.owner, this);
        } else {
            EXPECT_EQ(mpoolCreate(setup.blockCount, setup.blockSize, MEM_RSRC_PQ_POOL, setup.name, &pool_), COD_SUCCESS);
            pool_.owner = this;
        }
        pool_.rsvdBlocks = setup.reserve;
        pool_.isLockFree = setup.lockFree;
        if (setup.lockFree) {
            spinLock(&pool_.lock, LOCK_TYPE_MEMORY_POOL);  // nobody may wait for it
        }
        mpoolRegisterExtend(&pool_, setup.extends ? extend : nullptr);
        mpoolRegisterRecycle(&pool_, setup.recycles ? recycle : nullptr);
        addBuffer(pool_.buffer, size);
        for (MemRsrc &account : accounts_) {
            aniMemRsrcInit(&account);
            aniMemRsrcSetLimit(&account, MEM_RSRC_PQ_POOL, setup.blockSize * (5 + random_.below(40)) + random_.below(setup.blockSize));
        }
    }
    ~PoolWalk() {
        while (!contexts_.empty() && !random_.oneIn(10)) {
            destroy();
        }
        mpoolDestroy(&pool_);  // the contexts that are left end with it
    }

    void run(int steps) {
        static constexpr std::pair<CodUint32, void (*)(PoolWalk &)> kOperations[] = {
            {6, [](PoolWalk &walk) { walk.contexts_.size() < 5 ? walk.create() : walk.inspect(); }},
            {10, [](PoolWalk &walk) { walk.destroy(); }},
            {13, [](PoolWalk &walk) { walk.takeSingle(); }},
            {16, [](PoolWalk &walk) { walk.freeSingles(); }},
            {60, [](PoolWalk &walk) { walk.allocate(*walk.random_.pick(walk.contexts_)); }},
            {72, [](PoolWalk &walk) { walk.allocateMax(*walk.random_.pick(walk.contexts_)); }},
            {76, [](PoolWalk &walk) { walk.extendContext(*walk.random_.pick(walk.contexts_)); }},
            {80, [](PoolWalk &walk) { walk.reserve(*walk.random_.pick(walk.contexts_)); }},
            {92, [](PoolWalk &walk) { walk.truncate(*walk.random_.pick(walk.contexts_)); }},
            {100, [](PoolWalk &walk) { walk.inspect(); }},
        };
        for (int step = 0; step < steps && !testing::Test::HasFailure(); step++) {
            CodUint32 dice = contexts_.empty() ? 0 : random_.below(100);
            const auto *operation =
                std::find_if(std::begin(kOperations), std::end(kOperations), [=](auto &row) { return dice < row.first; });
            operation->second(*this);
            compare();
            EXPECT_FALSE(testing::Test::HasFailure()) << "step " << step << ", operation " << operation - kOperations;
        }
    }

private:
    // ---- Callbacks: they do what chance says and leave a note for the model ----

    static CodResult extend(void *owner, void **buffer, CodUint64 *size) {
        auto *self = static_cast<PoolWalk *>(owner);
        EXPECT_FALSE(spinTryLock(&self->pool_.lock)) << "runs under the pool's lock";
        self->extensions_.push_back({});
        if (self->random_.oneIn(4)) {
            return self->random_.oneIn(2) ? codRaise(ERR_CMM_NOT_ALLOWED, "growth") : COD_ERROR;
        }
        *size = sizeof(MpoolBuffer) + self->blockBytes_ * (1 + self->random_.below(5)) + self->random_.below(self->blockBytes_);
        EXPECT_EQ(codSysAlloc(*size, buffer), COD_SUCCESS);
        self->extensions_.back() = {static_cast<MpoolBuffer *>(*buffer), *size};
        return COD_SUCCESS;
    }

    static void recycle(MemoryPool *pool, MpoolBlockCtrlList *blocks) {
        auto *self = static_cast<PoolWalk *>(pool->owner);
        EXPECT_EQ(facts(blocks->head, blocks->tail, blocks->count), facts(0, 0, 0));
        if (!self->setup_.lockFree) {
            EXPECT_TRUE(spinTryLock(&pool->lock)) << "runs without the pool's lock";
            spinUnlock(&pool->lock);
        }
        auto spared = std::min<std::ptrdiff_t>(self->random_.below(4), std::ssize(self->singles_));
        Blocks given(self->singles_.end() - spared, self->singles_.end());
        self->singles_.resize(self->singles_.size() - given.size());
        *blocks = listOf(given);
        self->recycled_.push_back(given);
    }

    static MpoolBlockCtrlList listOf(const Blocks &blocks) {
        for (std::size_t i = 0; i < blocks.size(); i++) {
            blocks[i]->next = i + 1 < blocks.size() ? blocks[i + 1] : nullptr;
        }
        return blocks.empty() ? MpoolBlockCtrlList{}
                              : MpoolBlockCtrlList{blocks.front(), blocks.back(), static_cast<CodUint32>(blocks.size()), 0};
    }

    // ---- The model of the pool ----

    void addBuffer(MpoolBuffer *buffer, CodUint64 size) {
        bytes_ += size;
        for (CodUint64 at = sizeof(MpoolBuffer); at + blockBytes_ <= size; at += blockBytes_) {
            free_.push_back(reinterpret_cast<Block>(reinterpret_cast<CodUint8 *>(buffer) + at));
            blockCount_++;
        }
    }

    // Freed blocks join the list in one piece at its tail; their order within the piece is the pool's own affair.
    void giveBack(MemRsrc *account, const Blocks &blocks) {
        Blocks chain = chainOf(pool_.freeBlocks.head);
        ASSERT_EQ(chain.size(), free_.size() + blocks.size());
        EXPECT_TRUE(std::is_permutation(blocks.begin(), blocks.end(), chain.end() - std::ssize(blocks)));
        free_.insert(free_.end(), chain.end() - std::ssize(blocks), chain.end());
        used_[account] -= blocks.size() * setup_.blockSize;
    }

    Block popFree() {
        Block block = free_.front();
        free_.pop_front();
        return block;
    }

    // What taking a block does; null with the expected error in error_ when it fails.
    Block take(MemRsrc *account, bool mayTakeReserve, bool isCreate, bool onlyTry) {
        if (account != nullptr && used_[account] + setup_.blockSize > account->limit[MEM_RSRC_PQ_POOL]) {
            error_ = "failed to allocate " + std::to_string(setup_.blockSize) + " bytes memory quota for PQ POOL";
            return nullptr;
        }
        Block block = takeUncharged(mayTakeReserve, isCreate, onlyTry);
        if (block != nullptr) {
            peak_ = std::max(peak_, blockCount_ - free_.size());
            used_[account] += setup_.blockSize;
        }
        return block;
    }

    Block takeUncharged(bool mayTakeReserve, bool isCreate, bool onlyTry) {
        if (free_.size() > (mayTakeReserve ? 0u : setup_.reserve)) {
            stats_.ctxAllocTimes++;
            stats_.ctxCreateTimes += isCreate;
            return popFree();
        }
        EXPECT_EQ(!recycled_.empty(), !onlyTry && setup_.recycles) << "the recycle callback is asked before all others";
        if (!recycled_.empty()) {
            Blocks given = recycled_.front();
            recycled_.pop_front();
            if (!given.empty()) {
                stats_.recycleTimes++;
                free_.insert(free_.end(), given.begin() + 1, given.end());
                return given.front();
            }
        }
        error_ = setup_.extends ? "" : std::string("no free block in ") + setup_.name;
        if (onlyTry || extensions_.empty()) {
            EXPECT_TRUE(onlyTry || !setup_.extends);
            return nullptr;
        }
        Buffer extension = extensions_.front();
        extensions_.pop_front();
        if (extension.at == nullptr) {
            return nullptr;
        }
        addBuffer(extension.at, extension.size);
        stats_.extendTimes++;  // counts the growth alone, not the block
        return popFree();
    }

    // ---- The model of a context ----

    // The next block of a context becomes part of it; null when there is none.
    Block append(Context &context, bool onlyTry) {
        Block block = context.spares.empty() ? take(context.account, context.mayTakeReserve, false, onlyTry) : context.spares.front();
        if (block != nullptr) {
            context.spares.erase(context.spares.begin(), context.spares.begin() + !context.spares.empty());
            context.blocks.push_back(block);
            context.tail = block;
        }
        return block;
    }

    bool moveOn(Context &context, bool onlyTry) {
        Block block = append(context, onlyTry);
        if (block != nullptr) {
            context.abandoned += setup_.blockSize - context.pos;
            context.current = block;
            context.pos = 0;
        }
        return block != nullptr;
    }

    CodUint8 *carve(Context &context, CodUint64 rounded, bool onlyTry) {
        error_ = "allocate unexpected size from memory pool, mem type PQ POOL";
        if (rounded == setup_.blockSize && !onlyTry) {
            Block block = append(context, false);
            return block == nullptr ? nullptr : block->block;
        }
        if (rounded > setup_.blockSize || (context.pos + rounded > setup_.blockSize && !moveOn(context, onlyTry))) {
            return nullptr;
        }
        context.pos += static_cast<CodUint32>(rounded);
        return context.current->block + context.pos - rounded;
    }

    // ---- Operations ----

    // A call that only tries raises nothing: it leaves the error that stood before.
    void mark(bool onlyTry) {
        onlyTry ? codSetErrorCode(77) : codCleanError();
    }

    void expectOutcome(bool expected, bool result, bool onlyTry = false) {
        std::string text = codGetLastErrorMsg();
        EXPECT_EQ(result, expected);
        if (onlyTry) {
            EXPECT_EQ(facts(codGetErrorStackDepth(), codGetErrorCode()), facts(1, 77));
        } else {
            EXPECT_EQ(codGetErrorStackDepth(), expected ? 0u : 1u) << codGetErrorMsg2();
            bool known = error_.empty() ? text == "growth is not allowed" || text == "internal error: error code unset" : text == error_;
            EXPECT_TRUE(expected || known) << text << " instead of " << error_;
        }
        codCleanError();
    }

    void create() {
        auto context = std::make_unique<Context>();
        bool onlyTry = random_.oneIn(3), isPlain = random_.oneIn(3);
        MemRsrc *account = context->account = isPlain || random_.oneIn(3) ? nullptr : &random_.pick(accounts_);
        CodUint16 code = context->code = isPlain ? CodUint16{0} : static_cast<CodUint16>(random_.below(3) * 1000);
        bool mayTakeReserve = context->mayTakeReserve = !isPlain && random_.oneIn(2);
        MemoryContext **out = &context->real;
        mark(onlyTry);
        bool made = isPlain   ? (onlyTry ? mctxTryCreate(&pool_, out) : mctxCreate(&pool_, out) == COD_SUCCESS)
                    : onlyTry ? mctxTryCustomCreate(&pool_, account, code, mayTakeReserve, out)
                              : mctxCustomCreate(&pool_, account, code, mayTakeReserve, out) == COD_SUCCESS;
        Block block = take(account, mayTakeReserve, true, onlyTry);
        expectOutcome(block != nullptr, made, onlyTry);
        if (block != nullptr && !testing::Test::HasFailure()) {
            EXPECT_EQ(facts(context->real), facts(block->block));
            context->blocks = {block};
            context->current = context->tail = block;
            contexts_.push_back(std::move(context));
        }
    }

    void destroy() {
        std::swap(random_.pick(contexts_), contexts_.back());
        std::unique_ptr<Context> context = std::move(contexts_.back());
        contexts_.pop_back();
        checkPatterns(*context);
        mctxDestroy(context->real);
        context->blocks.insert(context->blocks.end(), context->spares.begin(), context->spares.end());
        giveBack(context->account, context->blocks);
        stats_.ctxDestroyTimes++;
    }

    void freeSingles() {
        MpoolBlockCtrlList list = listOf(singles_);
        mpoolFreeBlocks(&pool_, &list);
        EXPECT_EQ(facts(list.head, list.count), facts(0, 0));
        giveBack(nullptr, singles_);
        singles_.clear();
    }

    void takeSingle() {
        bool mayTakeReserve = random_.oneIn(2), isCreate = random_.oneIn(2), onlyTry = random_.oneIn(2);
        Block block = nullptr;
        mark(onlyTry);
        bool got = onlyTry ? mpoolTryAllocBlock(&pool_, &block, mayTakeReserve, isCreate)
                           : mpoolAllocBlock(&pool_, &block, mayTakeReserve, isCreate) == COD_SUCCESS;
        Block expected = take(nullptr, mayTakeReserve, isCreate, onlyTry);
        expectOutcome(expected != nullptr, got, onlyTry);
        if (got) {
            ASSERT_EQ(block, expected);
            EXPECT_EQ(facts(block->type, block->next), facts(MPOOL_BLOCK_TYPE_PLAIN, 0));
            singles_.push_back(block);
        }
    }

    void keep(Context &context, void *at, CodUint32 size) {
        context.live.push_back({static_cast<CodUint8 *>(at), size, static_cast<CodUint8>(random_.below(256))});
        std::fill_n(context.live.back().at, size, context.live.back().pattern);
    }

    void allocate(Context &context) {
        static CodResult (*volatile const exported)(MemoryContext *, CodUint32, void **) = mctxAlloc;
        CodUint32 bs = setup_.blockSize;
        const CodUint32 kSizes[] = {0,      1,      7,      8,  9,      24,          bs / 3,      random_.below(bs),
                                    bs - 8, bs - 7, bs - 1, bs, bs + 1, 0xFFFFFFF8u, 0xFFFFFFF9u, 0xFFFFFFFFu};
        CodUint32 size = random_.pick(kSizes);
        bool onlyTry = random_.oneIn(4);
        void *out = this;
        mark(onlyTry);
        bool got = onlyTry            ? mctxTryAlloc(context.real, size, &out)
                   : random_.oneIn(2) ? mctxAlloc(context.real, size, &out) == COD_SUCCESS
                                      : exported(context.real, size, &out) == COD_SUCCESS;
        CodUint8 *expected = carve(context, roundUp(size), onlyTry);
        expectOutcome(expected != nullptr, got, onlyTry);
        ASSERT_EQ(out, expected);
        if (got) {
            keep(context, out, size);
        }
    }

    void allocateMax(Context &context) {
        const CodUint32 kSizes[] = {0, 1, 8, 30, setup_.blockSize, 0xFFFFFFFFu};
        CodUint32 wanted = random_.pick(kSizes), size = 0;
        void *out = this;
        bool got = mctxAllocMax(context.real, wanted, &size, &out) == COD_SUCCESS;
        bool expected = context.pos != setup_.blockSize || moveOn(context, false);
        auto given = static_cast<CodUint32>(std::min<CodUint64>(roundUp(wanted), setup_.blockSize - context.pos));
        expectOutcome(expected, got);
        ASSERT_EQ(facts(size, out), expected ? facts(given, context.current->block + context.pos) : facts(0, 0));
        if (got) {
            context.pos += given;
            keep(context, out, given);
        }
    }

    void extendContext(Context &context) {
        bool done = mctxExtend(context.real) == COD_SUCCESS;
        expectOutcome(moveOn(context, false), done);
    }

    void reserve(Context &context) {
        CodUint32 count = random_.below(6);
        bool done = mctxReserveBlocks(context.real, count) == COD_SUCCESS, enough = true;
        Blocks spares = chainOf(context.real->freeCtrl);
        while (context.spares.size() < count && enough) {
            Block block = take(context.account, context.mayTakeReserve, false, false);
            if ((enough = block != nullptr)) {
                context.spares.push_back(block);
            }
        }
        expectOutcome(enough, done);
        ASSERT_TRUE(std::is_permutation(spares.begin(), spares.end(), context.spares.begin(), context.spares.end()));
        context.spares = spares;
    }

    void truncate(Context &context) {
        checkPatterns(context);
        CodUint8 foreign = 0, *mark = context.current->block + context.pos;
        if (random_.oneIn(8)) {
            mark = &foreign;
        } else if (!context.live.empty() && !random_.oneIn(8)) {
            mark = random_.pick(context.live).at;
        }
        mctxTruncate(context.real, mark);
        Blocks &blocks = context.blocks;
        auto found = std::find_if(blocks.begin(), blocks.end(), [&](Block block) { return isIn(block, mark, 0, setup_.blockSize); });
        if (found != blocks.end()) {
            context.current = context.tail = *found;
            context.pos =
                static_cast<CodUint32>(std::min<CodUint64>(roundUp(static_cast<CodUint64>(mark - (*found)->block)), setup_.blockSize));
            Blocks behind(found + 1, blocks.end());
            blocks.erase(found + 1, blocks.end());
            giveBack(context.account, behind);
            std::erase_if(context.live, [&](const Allocation &allocation) {
                return std::none_of(blocks.begin(), blocks.end(), [&](Block block) {
                    return isIn(block, allocation.at, allocation.size, block == context.current ? context.pos : setup_.blockSize);
                });
            });
        }
    }

    static bool isIn(Block block, const CodUint8 *at, CodUint32 size, CodUint32 limit) {
        return at >= block->block && at + size <= block->block + limit;
    }

    void inspect() {
        MpoolReport report;
        ASSERT_EQ(mpoolReport(&pool_, &report), COD_SUCCESS);
        CodUint64 abandoned = 0;
        std::map<CodUint32, CodUint32> codes, reported;
        for (auto &context : contexts_) {
            codes[context->code]++;
            abandoned += context->abandoned;
        }
        std::for_each(report.codes, report.codes + report.codeCount, [&](auto &row) { reported[row.customCode] += row.contexts; });
        EXPECT_EQ(facts(report.bytes, report.blockSize, report.blockCount, report.freeBlocks, report.usedBlocks, report.peakUsedBlocks),
                  facts(bytes_, setup_.blockSize, blockCount_, free_.size(), blockCount_ - free_.size(), peak_));
        EXPECT_EQ(facts(report.contexts, report.abandonedBytes, report.otherContexts, report.codeCount),
                  facts(contexts_.size(), abandoned, 0, codes.size()));
        EXPECT_EQ(reported, codes);
        EXPECT_EQ(std::memcmp(&report.stats, &stats_, sizeof(stats_)), 0);
    }

    // ---- Comparison ----

    static void checkPatterns(const Context &context) {
        for (auto [at, size, pattern] : context.live) {
            bool whole = std::all_of(at, at + size, [expected = pattern](CodUint8 byte) { return byte == expected; });
            ASSERT_TRUE(whole) << "an allocation of " << size << " bytes was overwritten";
        }
    }

    void compare() {
        Blocks chain = chainOf(pool_.freeBlocks.head);
        ASSERT_TRUE(std::equal(chain.begin(), chain.end(), free_.begin(), free_.end()));
        EXPECT_EQ(facts(pool_.freeBlocks.count, pool_.freeBlocks.tail, pool_.freeBlocks.reserved, pool_.blockCount, pool_.blockSize),
                  facts(free_.size(), free_.empty() ? nullptr : free_.back(), peak_, blockCount_, setup_.blockSize));
        EXPECT_EQ(std::memcmp(&pool_.poolStats, &stats_, sizeof(stats_)), 0);
        EXPECT_EQ(mpoolVerify(&pool_), COD_SUCCESS) << codGetErrorMsg2();  // the heads of all blocks
        for (auto &context : contexts_) {
            compareContext(*context);
            if (random_.oneIn(16)) {
                checkPatterns(*context);
            }
        }
        EXPECT_TRUE(extensions_.empty() && recycled_.empty()) << "a callback was called without need";
        for (MemRsrc &account : accounts_) {
            EXPECT_EQ(aniMemRsrcUsed(&account, MEM_RSRC_PQ_POOL), used_[&account]);
        }
    }

    static void compareContext(const Context &context) {
        const MemoryContext &real = *context.real;
        ASSERT_EQ(chainOf(real.blocks.head), context.blocks);
        EXPECT_EQ(chainOf(real.freeCtrl), context.spares);
        EXPECT_EQ(facts(real.blocks.count, real.blocks.tail, real.currCtrl, real.tail, real.currPos, real.abandonedBytes, real.customCode,
                        real.canAllocRsvd),
                  facts(context.blocks.size(), context.blocks.back(), context.current, context.tail, context.pos, context.abandoned,
                        context.code, context.mayTakeReserve));
        for (Block block : context.blocks) {
            bool isFirst = block == context.blocks.front();
            EXPECT_EQ(facts(block->type, block->customCode),
                      facts(isFirst ? MPOOL_BLOCK_TYPE_CONTEXT : MPOOL_BLOCK_TYPE_PLAIN, context.code));
        }
    }

    const PoolSetup setup_;
    const CodUint32 blockBytes_;
    Random random_;
    MemoryPool pool_{};
    std::vector<CodUint64> area_;
    std::array<MemRsrc, 2> accounts_{};
    std::map<MemRsrc *, CodUint64> used_;
    std::vector<std::unique_ptr<Context>> contexts_;
    Blocks singles_;
    std::deque<Block> free_;
    std::size_t blockCount_ = 0;
    CodUint64 bytes_ = 0;  // of all buffers
    std::size_t peak_ = 0;
    MemPoolStats stats_{};
    std::deque<Buffer> extensions_;
    std::deque<Blocks> recycled_;
    std::string error_;  // the expected text; empty: the extend callback's
};

constexpr PoolSetup kSetups[] = {
    {"one-block", 1, 128},
    {"smallest", 10, sizeof(MemoryContext)},
    {"odd", 20, 333},
    {"attached", 12, 200, true},
    {"attached-odd", 12, 333, true, true},
    {"extending-empty", 0, 512, false, true},
    {"recycling-extending", 8, 100, false, true, true, 2},
    {"reserve", 12, 160, false, false, false, 3},
    {"reserve-extending", 6, 160, false, true, false, 3},
    {"lock-free", 16, 256, false, true, true, 1, true},
    {"many-blocks", 300, 96},
};

using MemoryModel = memory_support::CleanState;

TEST_F(MemoryModel, RandomOperationsLandWhereTheModelSays) {
    aniSetAlertCallback([](CodUint32, const char *, CodBool) {});
    for (const PoolSetup &setup : kSetups) {
        for (std::uint64_t seed = 1; seed <= 40 && !HasFailure(); seed++) {
            PoolWalk(setup, seed).run(600);
            EXPECT_FALSE(HasFailure()) << setup.name << ", seed " << seed;
        }
    }
    aniSetAlertCallback(nullptr);
}

}  // namespace
