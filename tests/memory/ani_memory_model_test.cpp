// Pools and contexts beside a slow model of where every block and every allocation lies.

#include <vel_infra/memory/ani_memory.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vel_infra/adr/ani_alert.h>

#include "support/memory_support.h"

namespace {

using memory_support::Random;
using Block = MpoolBlockCtrl *;

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
    std::vector<Block> blocks;
    std::vector<Block> spares;
    Block current = nullptr;
    Block tail = nullptr;
    CodUint32 pos = 0;
    CodUint64 abandoned = 0;
    std::vector<Allocation> live;
};

struct Setup {
    const char *name;
    CodUint32 blockCount;
    CodUint32 blockSize;
    bool attached = false;
    bool extends = false;
    bool recycles = false;
    CodUint8 reserve = 0;
    bool lockFree = false;
};

std::vector<Block> chainOf(Block head) {
    std::vector<Block> chain;
    for (; head != nullptr && chain.size() < 100000; head = head->next) {
        chain.push_back(head);
    }
    return chain;
}

template <typename Items>
std::multiset<Block> setOf(const Items &items) {
    return {items.begin(), items.end()};
}

class PoolWalk {
public:
    PoolWalk(const Setup &setup, std::uint64_t seed) : setup_(setup), random_(seed) {
        blockBytes_ = setup.blockSize + sizeof(MpoolBlockCtrl);
        CodUint64 size = sizeof(MpoolBuffer) + blockBytes_ * setup.blockCount;
        if (setup.attached) {
            size += random_.below(static_cast<CodUint32>(blockBytes_));
            area_.resize(size / 8 + 1);
            EXPECT_EQ(mpoolAttach(area_.data(), size, setup.blockSize, MEM_RSRC_PQ_POOL, setup.name, this, &pool_), COD_SUCCESS);
            EXPECT_EQ(pool_.owner, this);
        } else {
            EXPECT_EQ(mpoolCreate(setup.blockCount, setup.blockSize, MEM_RSRC_PQ_POOL, setup.name, &pool_), COD_SUCCESS);
            pool_.owner = this;
        }
        pool_.rsvdBlocks = setup.reserve;
        pool_.isLockFree = setup.lockFree;
        if (setup.extends) {
            mpoolRegisterExtend(&pool_, extend);
        }
        if (setup.recycles) {
            mpoolRegisterRecycle(&pool_, recycle);
        }
        addBuffer(pool_.buffer, size);
        for (MemRsrc &account : accounts_) {
            aniMemRsrcInit(&account);
            aniMemRsrcSetLimit(&account, MEM_RSRC_PQ_POOL,
                               CodUint64{setup.blockSize} * (5 + random_.below(40)) + random_.below(setup.blockSize));
        }
    }

    ~PoolWalk() {
        while (!contexts_.empty() && !random_.oneIn(10)) {
            destroy();
        }
        if (contexts_.empty() && stash_.empty()) {
            EXPECT_EQ(pool_.freeBlocks.count, pool_.blockCount);
            for (MemRsrc &account : accounts_) {
                EXPECT_EQ(aniMemRsrcUsed(&account, MEM_RSRC_PQ_POOL), 0u);
            }
        }
        mpoolDestroy(&pool_);  // the contexts that are left end with it
    }

    void run(int steps) {
        for (int step = 0; step < steps && !testing::Test::HasFailure(); step++) {
            operate();
            compare(step % 16 == 0);
            if (testing::Test::HasFailure()) {
                ADD_FAILURE() << "step " << step << " " << operation_;
            }
        }
    }

private:
    // ---- Callbacks: they do what chance says and leave a note for the model ----

    static CodResult extend(void *owner, void **buffer, CodUint64 *size) {
        auto *self = static_cast<PoolWalk *>(owner);
        EXPECT_EQ(spinTryLock(&self->pool_.lock), self->setup_.lockFree) << "runs under the pool's lock";
        if (self->setup_.lockFree) {
            spinUnlock(&self->pool_.lock);
        }
        if (self->random_.oneIn(4)) {
            self->extensions_.push_back({});
            return self->random_.oneIn(2) ? codRaise(ERR_CMM_NOT_ALLOWED, "growth") : COD_ERROR;
        }
        *size = sizeof(MpoolBuffer) + self->blockBytes_ * (1 + self->random_.below(5)) +
                self->random_.below(static_cast<CodUint32>(self->blockBytes_));
        EXPECT_EQ(codSysAlloc(*size, buffer), COD_SUCCESS);
        self->extensions_.push_back(std::pair{static_cast<MpoolBuffer *>(*buffer), *size});
        return COD_SUCCESS;
    }

    static void recycle(MemoryPool *pool, MpoolBlockCtrlList *blocks) {
        auto *self = static_cast<PoolWalk *>(pool->owner);
        EXPECT_TRUE(blocks->head == nullptr && blocks->tail == nullptr && blocks->count == 0);
        EXPECT_TRUE(spinTryLock(&pool->lock)) << "runs without the pool's lock";
        spinUnlock(&pool->lock);
        std::size_t spared = std::min<std::size_t>(self->random_.below(4), self->stash_.size());
        std::vector<Block> given(self->stash_.end() - static_cast<std::ptrdiff_t>(spared), self->stash_.end());
        self->stash_.resize(self->stash_.size() - spared);
        *blocks = self->listOf(given);
        self->recycled_.push_back(given);
    }

    MpoolBlockCtrlList listOf(const std::vector<Block> &blocks) {
        MpoolBlockCtrlList list{};
        for (std::size_t i = 0; i < blocks.size(); i++) {
            blocks[i]->next = i + 1 < blocks.size() ? blocks[i + 1] : nullptr;
        }
        if (!blocks.empty()) {
            list = {blocks.front(), blocks.back(), static_cast<CodUint32>(blocks.size()), 0};
        }
        return list;
    }

    // ---- The model of the pool ----

    void addBuffer(MpoolBuffer *buffer, CodUint64 size) {
        buffers_.insert(buffers_.begin(), {buffer, {static_cast<CodUint8>(blockCount_), size}});
        CodUint64 count = (size - sizeof(MpoolBuffer)) / blockBytes_;
        for (CodUint64 i = 0; i < count; i++) {
            Block block = reinterpret_cast<Block>(reinterpret_cast<CodUint8 *>(buffer) + sizeof(MpoolBuffer) + i * blockBytes_);
            ordinals_[block] = static_cast<CodUint8>(blockCount_++);
            free_.push_back(block);
        }
    }

    // Freed blocks join the list in one piece at its tail; their order within the piece is the pool's own affair.
    void giveBack(const std::vector<Block> &blocks) {
        std::vector<Block> chain = chainOf(pool_.freeBlocks.head);
        ASSERT_EQ(chain.size(), free_.size() + blocks.size());
        auto middle = chain.begin() + static_cast<std::ptrdiff_t>(free_.size());
        EXPECT_TRUE(std::equal(chain.begin(), middle, free_.begin()));
        EXPECT_EQ(std::multiset<Block>(middle, chain.end()), setOf(blocks));
        free_.assign(chain.begin(), chain.end());
    }

    Block takeFree(bool isCreate) {
        Block block = free_.front();
        free_.pop_front();
        stats_.ctxAllocTimes++;
        stats_.ctxCreateTimes += isCreate;
        return block;
    }

    // What a block take does; null with the expected error in error_ when it fails.
    Block take(MemRsrc *account, bool mayTakeReserve, bool isCreate, bool onlyTry) {
        if (account != nullptr && used_[account] + setup_.blockSize > account->limit[MEM_RSRC_PQ_POOL]) {
            error_ = {ERR_CMM_ALLOC_MEM_QUOTA,
                      "failed to allocate " + std::to_string(setup_.blockSize) + " bytes memory quota for PQ POOL"};
            return nullptr;
        }
        Block block = takeUncharged(mayTakeReserve, isCreate, onlyTry);
        if (block != nullptr) {
            peak_ = std::max(peak_, blockCount_ - static_cast<CodUint32>(free_.size()));
            if (account != nullptr) {
                used_[account] += setup_.blockSize;
            }
        }
        return block;
    }

    Block takeUncharged(bool mayTakeReserve, bool isCreate, bool onlyTry) {
        if (free_.size() > (mayTakeReserve ? 0u : setup_.reserve)) {
            return takeFree(isCreate);
        }
        if (onlyTry) {
            return nullptr;
        }
        if (setup_.recycles) {
            EXPECT_FALSE(recycled_.empty());
            std::vector<Block> given = recycled_.front();
            recycled_.pop_front();
            if (!given.empty()) {
                stats_.recycleTimes++;
                free_.insert(free_.end(), given.begin() + 1, given.end());
                return given.front();
            }
        }
        if (!setup_.extends) {
            error_ = {ERR_CMM_ALLOC_MPOOL_BLOCK, std::string("no free block in ") + setup_.name};
            return nullptr;
        }
        EXPECT_FALSE(extensions_.empty());
        auto extension = extensions_.front();
        extensions_.pop_front();
        if (!extension) {
            error_ = {0, ""};
            return nullptr;
        }
        addBuffer(extension->first, extension->second);
        stats_.extendTimes++;  // counts the growth alone, not the block
        Block block = free_.front();
        free_.pop_front();
        return block;
    }

    // ---- The model of a context ----

    // The next block of a context becomes part of it; null when there is none.
    Block append(Context &context, bool onlyTry) {
        Block block;
        if (!context.spares.empty()) {
            block = context.spares.front();
            context.spares.erase(context.spares.begin());
        } else {
            block = take(context.account, context.mayTakeReserve, false, onlyTry);
        }
        if (block != nullptr) {
            context.blocks.push_back(block);
            context.tail = block;
        }
        return block;
    }

    bool moveOn(Context &context, bool onlyTry) {
        Block block = append(context, onlyTry);
        if (block == nullptr) {
            return false;
        }
        context.abandoned += setup_.blockSize - context.pos;
        context.current = block;
        context.pos = 0;
        return true;
    }

    CodUint8 *carve(Context &context, CodUint32 size, bool onlyTry) {
        CodUint64 rounded = (CodUint64{size} + 7) / 8 * 8;
        if (rounded > setup_.blockSize) {
            error_ = {ERR_CMM_ALLOC_MCTX_MEM, "allocate unexpected size from memory pool, mem type PQ POOL"};
            return nullptr;
        }
        if (!onlyTry && rounded == setup_.blockSize) {
            Block block = append(context, false);
            return block == nullptr ? nullptr : block->block;
        }
        if (context.pos + rounded > setup_.blockSize && !moveOn(context, onlyTry)) {
            return nullptr;
        }
        CodUint8 *at = context.current->block + context.pos;
        context.pos += static_cast<CodUint32>(rounded);
        return at;
    }

    // ---- Operations ----

    void expectOutcome(bool expected, CodResult result) {
        EXPECT_EQ(result, expected ? COD_SUCCESS : COD_ERROR);
        EXPECT_EQ(codGetErrorStackDepth(), expected ? 0u : 1u) << codGetErrorMsg2();
        if (!expected && error_.first != 0) {
            EXPECT_EQ(codGetErrorCode(), error_.first);
            EXPECT_EQ(codGetLastErrorMsg(), error_.second);
        } else if (!expected) {
            std::string text = codGetLastErrorMsg();
            EXPECT_TRUE(text == "growth is not allowed" || text == "internal error: error code unset") << text;
        }
        codCleanError();
    }

    // A call that raises nothing leaves the error that stood before.
    template <typename Call>
    bool quietly(Call call) {
        codSetErrorCode(77);
        bool result = call();
        EXPECT_EQ(codGetErrorStackDepth(), 1u);
        EXPECT_EQ(codGetErrorCode(), 77u);
        codCleanError();
        return result;
    }

    void operate() {
        static constexpr int kMostContexts = 5;
        CodUint32 dice = random_.below(100);
        if (contexts_.empty() || (dice < 6 && contexts_.size() < kMostContexts)) {
            return create();
        }
        if (dice < 10) {
            return destroy();
        }
        if (dice < 16) {
            return single();
        }
        Context &context = *random_.pick(contexts_);
        if (dice < 60) {
            return allocate(context);
        }
        if (dice < 72) {
            return allocateMax(context);
        }
        if (dice < 76) {
            operation_ = "extend";
            CodResult result = mctxExtend(context.real);
            return expectOutcome(moveOn(context, false), result);
        }
        if (dice < 80) {
            return reserve(context);
        }
        if (dice < 92) {
            return truncate(context);
        }
        inspect();
    }

    void create() {
        auto context = std::make_unique<Context>();
        CodUint32 way = random_.below(3);
        bool onlyTry = random_.oneIn(3);
        operation_ = "create " + std::to_string(way) + (onlyTry ? " try" : "");
        context->account = way == 0 ? nullptr : random_.oneIn(3) ? nullptr : &random_.pick(accounts_);
        context->code = way == 2 ? static_cast<CodUint16>(random_.below(3) * 1000) : CodUint16{0};
        context->mayTakeReserve = way == 2 && random_.oneIn(2);
        MemoryContext **out = &context->real;
        MemRsrc *account = context->account;
        CodResult result = COD_SUCCESS;
        bool made = false;
        if (onlyTry) {
            made = quietly([&] {
                return way == 0   ? mctxTryCreate(&pool_, out)
                       : way == 1 ? mctxTryCreateWithRsrc(&pool_, account, out)
                                  : mctxTryCustomCreate(&pool_, account, context->code, context->mayTakeReserve, out);
            });
        } else {
            result = way == 0   ? mctxCreate(&pool_, out)
                     : way == 1 ? mctxCreateWithRsrc(&pool_, account, out)
                                : mctxCustomCreate(&pool_, account, context->code, context->mayTakeReserve, out);
        }
        Block block = take(account, context->mayTakeReserve, true, onlyTry);
        if (onlyTry) {
            EXPECT_EQ(made, block != nullptr);
        } else {
            expectOutcome(block != nullptr, result);
        }
        if (block == nullptr || testing::Test::HasFailure()) {
            return;
        }
        EXPECT_EQ(reinterpret_cast<CodUint8 *>(context->real), block->block);
        context->blocks = {block};
        context->current = context->tail = block;
        context->pos = sizeof(MemoryContext);
        contexts_.push_back(std::move(context));
    }

    void destroy() {
        operation_ = "destroy";
        std::size_t index = random_.below(static_cast<CodUint32>(contexts_.size()));
        Context &context = *contexts_[index];
        checkPatterns(context);
        mctxDestroy(context.real);
        std::vector<Block> blocks = context.blocks;
        blocks.insert(blocks.end(), context.spares.begin(), context.spares.end());
        giveBack(blocks);
        refund(context, blocks.size());
        stats_.ctxDestroyTimes++;
        contexts_.erase(contexts_.begin() + static_cast<std::ptrdiff_t>(index));
    }

    void refund(Context &context, std::size_t blocks) {
        if (context.account != nullptr) {
            used_[context.account] -= blocks * setup_.blockSize;
        }
    }

    void single() {
        if (!stash_.empty() && random_.oneIn(2)) {
            operation_ = "free blocks";
            MpoolBlockCtrlList list = listOf(stash_);
            mpoolFreeBlocks(&pool_, &list);
            EXPECT_TRUE(list.head == nullptr && list.count == 0);
            giveBack(stash_);
            stash_.clear();
            return;
        }
        operation_ = "alloc block";
        bool mayTakeReserve = random_.oneIn(2), isCreate = random_.oneIn(2), onlyTry = random_.oneIn(2);
        Block block = nullptr;
        if (onlyTry) {
            bool got = quietly([&] { return mpoolTryAllocBlock(&pool_, &block, mayTakeReserve, isCreate); });
            Block expected = take(nullptr, mayTakeReserve, isCreate, true);
            EXPECT_EQ(got, expected != nullptr);
            EXPECT_TRUE(!got || block == expected);
        } else {
            CodResult result = mpoolAllocBlock(&pool_, &block, mayTakeReserve, isCreate);
            Block expected = take(nullptr, mayTakeReserve, isCreate, false);
            expectOutcome(expected != nullptr, result);
            EXPECT_TRUE(expected == nullptr || block == expected);
        }
        if (block != nullptr && !testing::Test::HasFailure()) {
            EXPECT_EQ(+block->type, MPOOL_BLOCK_TYPE_PLAIN);
            EXPECT_EQ(Block{block->next}, nullptr);
            stash_.push_back(block);
        }
    }

    void keep(Context &context, void *at, CodUint32 size) {
        CodUint8 pattern = static_cast<CodUint8>(random_.below(256));
        std::fill_n(static_cast<CodUint8 *>(at), size, pattern);
        context.live.push_back({static_cast<CodUint8 *>(at), size, pattern});
    }

    void allocate(Context &context) {
        CodUint32 bs = setup_.blockSize;
        const CodUint32 kSizes[] = {0,      1,      7,      8,  9,      24,          bs / 3,      random_.below(bs),
                                    bs - 8, bs - 7, bs - 1, bs, bs + 1, 0xFFFFFFF8u, 0xFFFFFFF9u, 0xFFFFFFFFu};
        CodUint32 size = random_.pick(kSizes);
        bool onlyTry = random_.oneIn(4);
        operation_ = (onlyTry ? "try alloc " : "alloc ") + std::to_string(size);
        void *out = nullptr;
        CodUint8 *expected;
        if (onlyTry) {
            bool got = quietly([&] { return mctxTryAlloc(context.real, size, &out); });
            expected = carve(context, size, true);
            EXPECT_EQ(got, expected != nullptr);
        } else {
            static CodResult (*volatile const exported)(MemoryContext *, CodUint32, void **) = mctxAlloc;
            CodResult result = random_.oneIn(2) ? mctxAlloc(context.real, size, &out) : exported(context.real, size, &out);
            expected = carve(context, size, false);
            expectOutcome(expected != nullptr, result);
        }
        if (expected != nullptr) {
            ASSERT_EQ(out, expected);
            keep(context, out, size);
        }
    }

    void allocateMax(Context &context) {
        const CodUint32 kSizes[] = {0, 1, 8, 30, setup_.blockSize, 0xFFFFFFFFu};
        CodUint32 wanted = random_.pick(kSizes);
        operation_ = "alloc max " + std::to_string(wanted);
        void *out = nullptr;
        CodUint32 size = 0;
        CodResult result = mctxAllocMax(context.real, wanted, &size, &out);
        bool expected = context.pos != setup_.blockSize || moveOn(context, false);
        expectOutcome(expected, result);
        if (expected) {
            CodUint64 rounded = (CodUint64{wanted} + 7) / 8 * 8;
            CodUint32 given = static_cast<CodUint32>(std::min<CodUint64>(rounded, setup_.blockSize - context.pos));
            ASSERT_EQ(size, given);
            ASSERT_EQ(out, context.current->block + context.pos);
            context.pos += given;
            keep(context, out, given);
        }
    }

    void reserve(Context &context) {
        CodUint32 count = random_.below(6);
        operation_ = "reserve " + std::to_string(count);
        CodResult result = mctxReserveBlocks(context.real, count);
        std::vector<Block> spares = context.spares;
        bool enough = true;
        while (enough && spares.size() < count) {
            Block block = take(context.account, context.mayTakeReserve, false, false);
            enough = block != nullptr;
            if (enough) {
                spares.push_back(block);
            }
        }
        expectOutcome(enough, result);
        context.spares = chainOf(context.real->freeCtrl);
        EXPECT_EQ(setOf(context.spares), setOf(spares));
    }

    void truncate(Context &context) {
        checkPatterns(context);
        CodUint8 foreign = 0;
        CodUint8 *mark = context.current->block + context.pos;
        if (random_.oneIn(8)) {
            mark = &foreign;
        } else if (!context.live.empty() && !random_.oneIn(8)) {
            mark = random_.pick(context.live).at;
        }
        operation_ = "truncate";
        mctxTruncate(context.real, mark);
        std::vector<Block> &blocks = context.blocks;
        auto holds = [&](Block block) { return mark >= block->block && mark <= block->block + setup_.blockSize; };
        auto found = std::find_if(blocks.begin(), blocks.end(), holds);
        if (found == blocks.end()) {
            return;
        }
        context.current = context.tail = *found;
        CodUint64 distance = static_cast<CodUint64>(mark - (*found)->block);
        context.pos = static_cast<CodUint32>(std::min<CodUint64>((distance + 7) / 8 * 8, setup_.blockSize));
        std::vector<Block> behind(found + 1, blocks.end());
        blocks.erase(found + 1, blocks.end());
        giveBack(behind);
        refund(context, behind.size());
        std::erase_if(context.live, [&](const Allocation &allocation) { return !kept(context, allocation); });
    }

    bool kept(const Context &context, const Allocation &allocation) const {
        for (Block block : context.blocks) {
            CodUint32 limit = block == context.current ? context.pos : setup_.blockSize;
            if (allocation.at >= block->block && allocation.at + allocation.size <= block->block + limit) {
                return true;
            }
        }
        return false;
    }

    void inspect() {
        operation_ = "inspect";
        EXPECT_EQ(mpoolVerify(&pool_), COD_SUCCESS) << codGetErrorMsg2();
        MpoolReport report;
        ASSERT_EQ(mpoolReport(&pool_, &report), COD_SUCCESS);
        CodUint64 bytes = 0, abandoned = 0;
        for (auto &[buffer, facts] : buffers_) {
            bytes += facts.second;
        }
        std::map<CodUint32, CodUint32> codes, reported;
        for (auto &context : contexts_) {
            codes[context->code]++;
            abandoned += context->abandoned;
        }
        for (CodUint32 i = 0; i < report.codeCount; i++) {
            reported[report.codes[i].customCode] += report.codes[i].contexts;
        }
        EXPECT_EQ(report.bytes, bytes);
        EXPECT_EQ(report.blockSize, setup_.blockSize);
        EXPECT_EQ(report.blockCount, blockCount_);
        EXPECT_EQ(report.freeBlocks, free_.size());
        EXPECT_EQ(report.usedBlocks, blockCount_ - free_.size());
        EXPECT_EQ(report.peakUsedBlocks, peak_);
        EXPECT_EQ(report.contexts, contexts_.size());
        EXPECT_EQ(report.abandonedBytes, abandoned);
        EXPECT_EQ(report.otherContexts, 0u);
        EXPECT_EQ(report.codeCount, codes.size());
        EXPECT_EQ(reported, codes);
        EXPECT_EQ(std::memcmp(&report.stats, &pool_.poolStats, sizeof(report.stats)), 0);
    }

    // ---- Comparison ----

    void checkPatterns(const Context &context) {
        for (const Allocation &allocation : context.live) {
            bool whole =
                std::all_of(allocation.at, allocation.at + allocation.size, [&](CodUint8 byte) { return byte == allocation.pattern; });
            ASSERT_TRUE(whole) << "an allocation of " << allocation.size << " bytes was overwritten";
        }
    }

    void compare(bool withPatterns) {
        comparePool();
        for (auto &context : contexts_) {
            compareContext(*context);
            if (withPatterns) {
                checkPatterns(*context);
            }
        }
        EXPECT_TRUE(extensions_.empty() && recycled_.empty()) << "a callback was called without need";
        for (MemRsrc &account : accounts_) {
            EXPECT_EQ(aniMemRsrcUsed(&account, MEM_RSRC_PQ_POOL), used_[&account]);
            EXPECT_LE(used_[&account], account.limit[MEM_RSRC_PQ_POOL]);
        }
    }

    void comparePool() {
        std::vector<Block> chain = chainOf(pool_.freeBlocks.head);
        ASSERT_TRUE(std::equal(chain.begin(), chain.end(), free_.begin(), free_.end()));
        EXPECT_EQ(pool_.freeBlocks.count, free_.size());
        EXPECT_EQ(pool_.freeBlocks.tail, free_.empty() ? nullptr : free_.back());
        EXPECT_EQ(pool_.freeBlocks.reserved, peak_);
        EXPECT_EQ(pool_.blockCount, blockCount_);
        EXPECT_EQ(pool_.blockSize, setup_.blockSize);
        auto figures = [](const MemPoolStats &stats) {
            return std::array{stats.ctxCreateTimes, stats.ctxDestroyTimes, stats.ctxAllocTimes, stats.extendTimes, stats.recycleTimes};
        };
        EXPECT_EQ(figures(pool_.poolStats), figures(stats_));
        MpoolBuffer *buffer = pool_.buffer;
        for (auto &[expected, facts] : buffers_) {
            ASSERT_EQ(buffer, expected);
            EXPECT_EQ(+buffer->startId, facts.first);
            EXPECT_EQ(CodUint64{buffer->size}, facts.second);
            buffer = buffer->next;
        }
        EXPECT_EQ(buffer, nullptr);
        for (auto [block, ordinal] : ordinals_) {
            bool whole = block->magicNum == MPOOL_BLOCK_MAGIC && block->continuityCode == ordinal && block->pool == &pool_;
            ASSERT_TRUE(whole) << "the head of block " << +ordinal;
        }
    }

    void compareContext(const Context &context) {
        const MemoryContext &real = *context.real;
        ASSERT_EQ(chainOf(real.blocks.head), context.blocks);
        EXPECT_EQ(CodUint32{real.blocks.count}, context.blocks.size());
        EXPECT_EQ(Block{real.blocks.tail}, context.blocks.back());
        EXPECT_EQ(chainOf(real.freeCtrl), context.spares);
        EXPECT_EQ(Block{real.currCtrl}, context.current);
        EXPECT_EQ(Block{real.tail}, context.tail);
        EXPECT_EQ(CodUint32{real.currPos}, context.pos);
        EXPECT_EQ(CodUint64{real.abandonedBytes}, context.abandoned);
        EXPECT_EQ(CodUint16{real.customCode}, context.code);
        EXPECT_EQ(static_cast<bool>(real.canAllocRsvd), context.mayTakeReserve);
        for (Block block : context.blocks) {
            EXPECT_EQ(+block->type, block == context.blocks.front() ? MPOOL_BLOCK_TYPE_CONTEXT : MPOOL_BLOCK_TYPE_PLAIN);
            EXPECT_EQ(+block->customCode, context.code);
        }
    }

    const Setup setup_;
    Random random_;
    MemoryPool pool_{};
    std::vector<CodUint64> area_;
    CodUint64 blockBytes_ = 0;
    std::array<MemRsrc, 2> accounts_{};
    std::map<MemRsrc *, CodUint64> used_;
    std::vector<std::unique_ptr<Context>> contexts_;
    std::vector<Block> stash_;  // taken singly
    std::deque<Block> free_;
    std::map<Block, CodUint8> ordinals_;
    std::vector<std::pair<MpoolBuffer *, std::pair<CodUint8, CodUint64>>> buffers_;
    CodUint32 blockCount_ = 0;
    CodUint32 peak_ = 0;
    MemPoolStats stats_{};
    std::deque<std::optional<std::pair<MpoolBuffer *, CodUint64>>> extensions_;
    std::deque<std::vector<Block>> recycled_;
    std::pair<CodError, std::string> error_;
    std::string operation_;
};

constexpr Setup kSetups[] = {
    {"plain", 30, 256},
    {"one-block", 1, 128},
    {"smallest", 10, sizeof(MemoryContext)},
    {"multiple-of-4", 20, 100},
    {"odd", 20, 333},
    {"attached", 12, 200, true},
    {"attached-odd", 12, 333, true, true},
    {"extending", 3, 128, false, true},
    {"extending-empty", 0, 512, false, true},
    {"recycling", 12, 256, false, false, true},
    {"recycling-extending", 8, 100, false, true, true, 2},
    {"reserve", 12, 160, false, false, false, 3},
    {"reserve-extending", 6, 160, false, true, false, 3},
    {"lock-free", 16, 256, false, true, true, 1, true},
    {"many-blocks", 300, 96},
};

class MemoryModel : public memory_support::CleanErrors, public testing::WithParamInterface<Setup> {
protected:
    MemoryModel() {
        aniSetAlertCallback([](CodUint32, const char *, CodBool) {});
    }
    ~MemoryModel() override {
        aniSetAlertCallback(nullptr);
    }
};

TEST_P(MemoryModel, RandomOperationsLandWhereTheModelSays) {
    for (std::uint64_t seed = 1; seed <= 40 && !HasFailure(); seed++) {
        PoolWalk(GetParam(), seed).run(600);
        if (HasFailure()) {
            ADD_FAILURE() << "seed " << seed;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Pools, MemoryModel, testing::ValuesIn(kSetups), [](const auto &setup) {
    std::string name = setup.param.name;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
});

}  // namespace
