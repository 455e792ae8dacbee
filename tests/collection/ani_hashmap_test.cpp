#include <vel_infra/collection/ani_hashmap.h>

#include <deque>
#include <set>
#include <unordered_map>

#include <vel_infra/algorithm/ani_hashfunc.h>

#include "support/collection_support.h"

namespace {

using collection_support::expectError;
using collection_support::Operation;
using collection_support::Random;
using collection_support::runOneOf;

CodHashPointer intKey(CodUint64 value) {
    return {.intValue = value};
}
CodHashPointer pointerKey(void *value) {
    return {.ptrValue = value};
}

// Counts the map's live bucket arrays; mctx of the maps below.
struct Memory {
    std::map<void *, CodUint32> live;
    CodUint32 lastSize = 0;
};

void *takeMemory(CodUint32 size, void *mctx) {
    Memory *memory = static_cast<Memory *>(mctx);
    memory->lastSize = size;
    void *block = hashMapMalloc(size, nullptr);
    if (block != nullptr) {
        std::memset(block, 0xdd, size);  // the map zeroes what it gets
        memory->live[block] = size;
    }
    return block;
}

void giveMemory(void *ptr, void *mctx) {
    if (ptr != nullptr) {
        EXPECT_EQ(static_cast<Memory *>(mctx)->live.erase(ptr), 1u) << "a block that is not live was freed";
        hashMapFree(ptr, nullptr);
    }
}

// ---- Kinds of keys ----

CodInt32 compareInts(CodHashPointer left, CodHashPointer right) {
    return left.intValue != right.intValue;
}
CodInt32 neverEqual(CodHashPointer, CodHashPointer) {
    return 1;
}

// Every key stands twice in memory, so that the searched key's bits differ from the stored one's where keys are pointers.
class KeyKind {
public:
    using MakeInt = CodUint64 (*)(CodUint32 id);

    KeyKind(const char *label, CodHashCalc hash, CodHashKeyCompare compare, CodUint32 ids, MakeInt make)
        : name(label), hashCalc(hash), keyCompare(compare), idCount(ids), makeInt_(make) {}
    KeyKind(const char *label, CodHashCalc hash, CodHashKeyCompare compare, CodUint32 ids, bool bytes)
        : name(label), hashCalc(hash), keyCompare(compare), idCount(ids) {
        for (CodUint32 i = 0; i < 2 * ids; i++) {
            CodUint32 id = i / 2;
            std::string &content =
                contents_.emplace_back(id == 0 ? "" : std::string(id % 41, 'k') + std::string(1, '\0') + std::to_string(id));
            CodUint32 size = static_cast<CodUint32>(content.size());
            if (bytes) {
                pointers_.push_back(pointerKey(&bytes_.emplace_back(CodBytes{reinterpret_cast<CodUint8 *>(content.data()), size, i})));
            } else {
                pointers_.push_back(pointerKey(&texts_.emplace_back(CodText{content.data(), size, static_cast<CodUint8>(i)})));
            }
        }
    }

    KeyKind(const KeyKind &) = delete;  // the keys point into the record
    KeyKind &operator=(const KeyKind &) = delete;

    CodHashPointer key(CodUint32 id, bool probe = false) const {
        return makeInt_ ? intKey(makeInt_(id)) : pointers_[2 * id + probe];
    }

    const char *name;
    CodHashCalc hashCalc;
    CodHashKeyCompare keyCompare;
    CodUint32 idCount;

private:
    MakeInt makeInt_ = nullptr;
    std::deque<std::string> contents_;
    std::deque<CodText> texts_;
    std::deque<CodBytes> bytes_;
    std::vector<CodHashPointer> pointers_;
};

CodUint64 sequential(CodUint32 id) {
    return id;
}
CodUint64 highHalf(CodUint32 id) {
    return static_cast<CodUint64>(id) << 32;
}
CodUint64 scattered(CodUint32 id) {
    CodUint64 word = (id + 1) * 0x9e3779b97f4a7c15u;
    word = (word ^ (word >> 30)) * 0xbf58476d1ce4e5b9u;
    return word ^ (word >> 27);
}
CodUint32 hashIdentity(CodHashPointer key) {
    return static_cast<CodUint32>(key.intValue);
}
CodUint32 hashLowBits(CodHashPointer key) {
    return static_cast<CodUint32>(key.intValue & 7);
}
CodUint32 hashHighBits(CodHashPointer key) {
    return static_cast<CodUint32>(key.intValue << 20);
}
CodUint32 hashZero(CodHashPointer) {
    return 0;
}

const std::deque<KeyKind> &keyKinds() {
    static const std::deque<KeyKind> kinds = [] {
        std::deque<KeyKind> list;
        list.emplace_back("ready, sequential", codHashCalcUint64, codHashCompareUint64, 3000u, sequential);
        list.emplace_back("ready, high half", codHashCalcUint64, codHashCompareUint64, 3000u, highHalf);
        list.emplace_back("ready, scattered", codHashCalcUint64, codHashCompareUint64, 3000u, scattered);
        list.emplace_back("identity", hashIdentity, compareInts, 3000u, sequential);
        list.emplace_back("identity of scattered", hashIdentity, compareInts, 3000u, scattered);
        list.emplace_back("low bits only", hashLowBits, compareInts, 600u, scattered);
        list.emplace_back("high bits only", hashHighBits, compareInts, 300u, sequential);
        list.emplace_back("constant", hashZero, compareInts, 200u, sequential);
        list.emplace_back("bits alone decide", hashLowBits, neverEqual, 600u, scattered);
        list.emplace_back("texts", codHashCalcText, codHashCompareText, 1500u, false);
        list.emplace_back("byte strings", codHashCalcBytes, codHashCompareBytes, 1500u, true);
        list.emplace_back("texts, keyed", codHashCalcTextKeyed, codHashCompareText, 1500u, false);
        list.emplace_back("byte strings, keyed", codHashCalcBytesKeyed, codHashCompareBytes, 1500u, true);
        return list;
    }();
    return kinds;
}

// ---- Bucket tables of the caller's own ----

// Holds only the buckets that were ever written.
struct SparseTable {
    std::unordered_map<CodUint32, CodHashEntry *> heads;
    CodUint32 slots;
};

CodHashEntry *sparseGet(void *table, CodUint32 index) {
    SparseTable *sparse = static_cast<SparseTable *>(table);
    EXPECT_LT(index, sparse->slots);
    auto found = sparse->heads.find(index);
    return found == sparse->heads.end() ? nullptr : found->second;
}

void sparseSet(void *table, CodUint32 index, CodHashEntry *entry) {
    EXPECT_LT(index, static_cast<SparseTable *>(table)->slots);
    static_cast<SparseTable *>(table)->heads[index] = entry;
}

CodResult sparseInit(CodHashMap *map, void **table, CodUint32 byteSize) {
    void *block = map->hashAlloc(byteSize, map->mctx);
    if (block == nullptr) {
        return COD_ERROR;
    }
    map->hashFree(block, map->mctx);
    SparseTable *sparse = new SparseTable{{}, byteSize / 8};
    static_cast<Memory *>(map->mctx)->live[sparse] = byteSize;
    *table = sparse;
    return COD_SUCCESS;
}

void sparseRelease(CodHashMap *map, void *table) {
    if (table != nullptr) {
        EXPECT_EQ(static_cast<Memory *>(map->mctx)->live.erase(table), 1u);
        delete static_cast<SparseTable *>(table);
    }
}

// ---- The model: the rules of growth and rehashing over lists of entry numbers ----

class Model {
public:
    struct Table {
        std::vector<std::vector<CodUint32>> buckets;  // ids, head of the chain first
        CodUint32 used = 0;
        CodUint32 size() const {
            return static_cast<CodUint32>(buckets.size());
        }
    };

    explicit Model(std::vector<CodUint32> hashes) : hashes_(std::move(hashes)) {}

    // 0: done; else the code of the error. failing: the bucket array cannot be had.
    CodError expand(CodUint32 size, bool failing) {
        if (rehashIdx != -1) {
            return ERR_CMM_NOT_IMPLEMENTED;
        }
        if (size < tables[0].used) {
            return ERR_CMM_INVALID_PARAMETER;
        }
        CodUint32 buckets = 1;
        while (buckets < size && buckets < 1048576) {
            buckets *= 2;
        }
        if (buckets == tables[0].size()) {
            return 0;
        }
        if (failing) {
            refusedSize = 8 * buckets;
            return ERR_CMM_OUT_OF_MEMORY;
        }
        int target = tables[0].size() == 0 ? 0 : 1;
        tables[target].buckets.resize(buckets);
        rehashIdx = target - 1;
        return 0;
    }

    CodError add(CodUint32 id, bool failing) {
        if (rehashIdx != -1) {
            rehashStep();
        } else {
            CodUint32 n = 2 * tables[0].used;
            if (n >= 3 * tables[0].size() && n <= 33823) {
                if (CodError error = expand(n, failing)) {
                    return error;
                }
            }
        }
        if (contains(id)) {
            return ERR_CMM_DUPLICATE_OBJECT;
        }
        link(tables[rehashIdx != -1 ? 1 : 0], id);
        present_.insert(id);
        return 0;
    }

    bool erase(CodUint32 id) {
        if (tables[0].used + tables[1].used == 0) {
            return false;
        }
        if (rehashIdx != -1) {
            rehashStep();
        }
        for (Table &table : tables) {
            if (table.size() != 0) {
                std::vector<CodUint32> &chain = bucketOf(table, id);
                auto place = std::find(chain.begin(), chain.end(), id);
                if (place != chain.end()) {
                    chain.erase(place);
                    table.used--;
                    present_.erase(id);
                    return true;
                }
            }
        }
        return false;
    }

    void rehashStep() {
        if (finishWhenEmpty()) {
            return;
        }
        for (int skipped = 0; current().empty();) {
            rehashIdx++;
            if (++skipped == 10) {
                return;
            }
        }
        for (CodUint32 id : current()) {
            link(tables[1], id);
            tables[0].used--;
        }
        current().clear();
        rehashIdx++;
        finishWhenEmpty();
    }

    void rehashSteps(CodUint32 steps) {
        for (CodUint32 i = 0; i < steps && rehashIdx != -1; i++) {
            rehashStep();
        }
    }

    std::vector<CodUint32> walk() const {
        std::vector<CodUint32> ids;
        for (const Table &table : tables) {
            for (const auto &chain : table.buckets) {
                ids.insert(ids.end(), chain.begin(), chain.end());
            }
        }
        return ids;
    }

    bool contains(CodUint32 id) const {
        return present_.count(id) != 0;
    }
    const std::set<CodUint32> &present() const {
        return present_;
    }

    Table tables[2];
    CodInt32 rehashIdx = -1;
    CodUint32 refusedSize = 0;

private:
    std::vector<CodUint32> &bucketOf(Table &table, CodUint32 id) {
        return table.buckets[hashes_[id] % table.size()];
    }
    std::vector<CodUint32> &current() {
        return tables[0].buckets.at(static_cast<std::size_t>(rehashIdx));
    }
    void link(Table &table, CodUint32 id) {
        std::vector<CodUint32> &chain = bucketOf(table, id);
        chain.insert(chain.begin(), id);
        table.used++;
    }
    bool finishWhenEmpty() {
        if (tables[0].used != 0) {
            return false;
        }
        tables[0] = std::move(tables[1]);
        tables[1] = Table();
        rehashIdx = -1;
        return true;
    }

    std::vector<CodUint32> hashes_;
    std::set<CodUint32> present_;
};

// ---- The map beside the model ----

class MapAgainstModel {
public:
    MapAgainstModel(const KeyKind &kind, bool sparse, CodUint32 size)
        : kind_(kind), random_(size + kind.idCount), entries_(kind.idCount), model_(hashesOf(kind)) {
        map_.mctx = &memory_;
        map_.tableType = 9;
        StHmapInitCallbackSet callbacks = {kind.keyCompare, kind.hashCalc, takeMemory, giveMemory, nullptr,
                                           nullptr,         sparseGet,     sparseSet,  sparseInit, sparseRelease};
        auto init = [&] { return sparse ? codHmapInitWithCallback(&map_, &callbacks, size) : codHMapInit(&map_, &callbacks, size); };
        codFailAllocAfter(0);
        expectError(ERR_CMM_OUT_OF_MEMORY, "", init);
        EXPECT_EQ(init(), COD_SUCCESS);
        EXPECT_EQ(map_.tableType, sparse ? 9 : 0);
        EXPECT_EQ(model_.expand(size, false), 0u);
        verify(true);
    }
    ~MapAgainstModel() {
        map_.hashFree = giveBuckets;
        codHMapRelease(&map_);
        EXPECT_TRUE(memory_.live.empty());
    }

    // Adds and deletes so that the number of entries wanders towards `target`, with everything else in between.
    void run(int steps, CodUint32 target) {
        for (int i = 0; i < steps && !testing::Test::HasFailure(); i++) {
            target_ = target;
            runOneOf(operations_, random_);
            verify(i % 100 == 0);
        }
        verify(true);
    }

    void add(CodUint32 id) {
        CodHashEntry *entry = &entries_[id];
        CodHashEntry other = {nullptr, kind_.key(id, true), {}};
        if (!model_.contains(id)) {
            *entry = {reinterpret_cast<CodHashEntry *>(this), kind_.key(id), intKey(id)};
        }
        expectCode([&](bool failing) { return model_.add(id, failing); },
                   [&, held = model_.contains(id)] { return codHMapAdd(&map_, held ? &other : entry); });
    }

    void erase(CodUint32 id) {
        bool held = model_.contains(id);
        ASSERT_EQ(model_.erase(id), held);
        ASSERT_EQ(codHMapDelete(&map_, kind_.key(id, true)), held ? &entries_[id] : nullptr);
        entries_[id] = {reinterpret_cast<CodHashEntry *>(1), intKey(~0ull), intKey(~0ull)};
    }

    void rehashSteps() {
        CodUint32 steps = random_.oneIn(50) ? UINT32_MAX : random_.below(3);
        model_.rehashSteps(steps);
        ASSERT_EQ(codHMapRehashStep(&map_, steps), model_.rehashIdx != -1);
    }

    void verify(bool thoroughly) {
        ASSERT_EQ(map_.rehashIdx, model_.rehashIdx);
        std::size_t arrays = 0;
        for (int i = 0; i < 2; i++) {
            const CodHashTable &table = map_.hashTable[i];
            ASSERT_EQ(table.size, model_.tables[i].size()) << "table " << i;
            ASSERT_EQ(table.used, model_.tables[i].used) << "table " << i;
            ASSERT_EQ(table.table == nullptr, table.size == 0) << "table " << i;
            ASSERT_EQ(table.sizeMask, table.size == 0 ? 0 : table.size - 1) << "table " << i;
            arrays += table.size != 0;
        }
        ASSERT_EQ(memory_.live.size(), arrays);
        if (thoroughly) {
            ASSERT_EQ(walk(), model_.walk());
            verifyStats();
            for (CodUint32 id = 0; id < kind_.idCount; id++) {
                find(id);
            }
        }
    }

    CodHashMap &map() {
        return map_;
    }
    Model &model() {
        return model_;
    }

    bool injectFailures = true;

private:
    // The entries are this test's own.
    static void giveBuckets(void *ptr, void *mctx) {
        Memory *memory = static_cast<Memory *>(mctx);
        if (memory->live.count(ptr) != 0) {
            giveMemory(ptr, mctx);
        }
    }

    static std::vector<CodUint32> hashesOf(const KeyKind &kind) {
        std::vector<CodUint32> hashes;
        for (CodUint32 id = 0; id < kind.idCount; id++) {
            hashes.push_back(kind.hashCalc(kind.key(id)));
            EXPECT_EQ(hashes.back(), kind.hashCalc(kind.key(id, true))) << "equal keys have equal hashes";
        }
        return hashes;
    }

    // Runs an operation that may need a bucket array, now and then with memory that cannot be had.
    template <typename ModelCall, typename MapCall>
    void expectCode(ModelCall onModel, MapCall onMap) {
        std::map<CodError, std::string> texts = {
            {ERR_CMM_NOT_IMPLEMENTED, "feature \"the last expand operation\" has not been implemented yet"},
            {ERR_CMM_INVALID_PARAMETER, "invalid parameter, reason: input size is not enough to hold the entries in the hash map"},
            {ERR_CMM_DUPLICATE_OBJECT, "duplicate object found"},
        };
        bool failing = injectFailures && random_.oneIn(3);
        CodError code = onModel(failing);
        texts[ERR_CMM_OUT_OF_MEMORY] = "out of memory to allocate hash table of size = " + std::to_string(model_.refusedSize);
        if (failing) {
            codFailAllocAfter(0);
        }
        if (code == 0) {
            EXPECT_EQ(onMap(), COD_SUCCESS);
        } else {
            expectError(code, texts.at(code), onMap);
        }
        codFailAllocAfter(-1);
    }

    CodUint32 anyId() {
        return random_.below(kind_.idCount);
    }

    void find(CodUint32 id) {
        const CodHashEntry *expected = model_.contains(id) ? &entries_[id] : nullptr;
        ASSERT_EQ(codHMapFind(&map_, kind_.key(id)), expected) << "key " << id;
        ASSERT_EQ(codHMapFind(&map_, kind_.key(id, true)), expected) << "key " << id;
    }

    void expand() {
        CodUint32 used = map_.hashTable[0].used;
        CodUint32 sizes[] = {0, used, used + 1, 2 * used, used == 0 ? 0 : used - 1, random_.below(5000)};
        CodUint32 size = sizes[random_.below(6)];
        expectCode([&](bool failing) { return model_.expand(size, failing); }, [&] { return codHMapExpand(&map_, size); });
    }

    void reserve() {
        CodUint32 entries = random_.below(4000);
        codFailAllocAfter(0);
        if (codHMapReserve(&map_, entries) != COD_SUCCESS) {
            EXPECT_EQ(codGetErrorCode(), ERR_CMM_OUT_OF_MEMORY);
            codCleanError();
            model_.rehashSteps(UINT32_MAX);
            verify(true);
            ASSERT_EQ(codHMapReserve(&map_, entries), COD_SUCCESS);
        }
        codFailAllocAfter(-1);
        model_.rehashSteps(UINT32_MAX);
        if (entries > model_.tables[0].size()) {
            ASSERT_EQ(model_.expand(entries, false), 0u);
            model_.rehashSteps(UINT32_MAX);
        }
    }

    std::vector<CodUint32> walk() {
        std::vector<CodUint32> ids;
        CodHashMapIterator iterator;
        codHMapInitIterator(&map_, &iterator);
        while (const CodHashEntry *entry = codHMapGetNext(&map_, &iterator)) {
            ids.push_back(static_cast<CodUint32>(entry->value.intValue));
            if (ids.size() > kind_.idCount) {
                ADD_FAILURE() << "the walk does not end";
                break;
            }
        }
        EXPECT_EQ(codHMapGetNext(&map_, &iterator), nullptr);
        return ids;
    }

    void deleteWhileWalking() {
        bool rehashing = model_.rehashIdx != -1;
        CodUint32 keepOneIn = random_.below(4) + 1;
        std::set<CodUint32> deleted;
        std::vector<CodUint32> met;
        std::size_t before = model_.present().size();
        CodHashMapIterator iterator;
        codHMapInitIterator(&map_, &iterator);
        while (const CodHashEntry *entry = codHMapGetNext(&map_, &iterator)) {
            CodUint32 id = static_cast<CodUint32>(entry->value.intValue);
            ASSERT_EQ(deleted.count(id), 0u) << "a deleted entry came back";
            ASSERT_TRUE(model_.contains(id));
            met.push_back(id);
            ASSERT_LE(met.size(), 4 * before + 4) << "the walk does not end";
            if (keepOneIn == 1 || !random_.oneIn(keepOneIn)) {
                erase(id);
                deleted.insert(id);
            }
        }
        if (!rehashing) {
            EXPECT_EQ(std::set<CodUint32>(met.begin(), met.end()).size(), met.size());
            EXPECT_EQ(met.size(), before);
        }
        verify(true);
    }

    void verifyStats() {
        CodHMapStats expected = {}, stats;
        for (const Model::Table &table : model_.tables) {
            expected.entries += table.used;
            expected.buckets += table.size();
            for (const auto &chain : table.buckets) {
                expected.longestChain = std::max(expected.longestChain, static_cast<CodUint32>(chain.size()));
                expected.chains[std::min<std::size_t>(chain.size(), HMAP_STATS_CHAINS - 1)]++;
            }
        }
        codHMapStats(&map_, &stats);
        EXPECT_EQ(stats.entries, expected.entries);
        EXPECT_EQ(stats.buckets, expected.buckets);
        EXPECT_EQ(stats.longestChain, expected.longestChain);
        EXPECT_DOUBLE_EQ(stats.load, static_cast<double>(expected.entries) / expected.buckets);
        EXPECT_TRUE(std::equal(stats.chains, stats.chains + HMAP_STATS_CHAINS, expected.chains));
    }

    const KeyKind &kind_;
    Random random_;
    Memory memory_;
    std::vector<CodHashEntry> entries_;
    Model model_;
    CodHashMap map_ = {};
    CodUint32 target_ = 0;
    const std::vector<Operation> operations_ = {
        {120, [this] { (model_.present().size() < target_) != random_.oneIn(5) ? add(anyId()) : erase(anyId()); }},
        {40, [this] { find(anyId()); }},
        {20, [this] { add(model_.present().empty() ? 0 : *model_.present().begin()); }},
        {20, [this] { erase(model_.present().empty() ? 0 : *model_.present().rbegin()); }},
        {6, [this] { expand(); }},
        {1, [this] { reserve(); }},
        {20, [this] { rehashSteps(); }},
        {1, [this] { deleteWhileWalking(); }},
    };
};

TEST(HashMap, agreesWithTheModelStepByStepWhicheverAllocationFails) {
    for (const KeyKind &kind : keyKinds()) {
        for (bool sparse : {false, true}) {
            SCOPED_TRACE(testing::Message() << kind.name << (sparse ? ", own buckets" : ""));
            MapAgainstModel pair(kind, sparse, kind.idCount % 7);
            for (CodUint32 percent : {90u, 5u, 50u, 0u}) {
                pair.run(sparse ? 800 : 2500, kind.idCount * percent / 100);
            }
            if (HasFailure()) {
                return;
            }
        }
    }
}

TEST(HashMap, growsAtALoadOfOneAndAHalfOneBucketAStep) {
    KeyKind kind("identity", hashIdentity, compareInts, 40000u, sequential);
    for (CodUint32 size : {0u, 3u, 4u, 20000u, 33000u}) {
        SCOPED_TRACE(size);
        MapAgainstModel pair(kind, false, size);
        pair.injectFailures = false;
        for (CodUint32 id = 0; id < kind.idCount && !HasFailure(); id++) {
            pair.add(id);
            pair.verify(false);
            if (size == 4 && id < 7) {
                EXPECT_EQ(pair.map().hashTable[1].size, id < 6 ? 0u : 16u) << "the seventh add begins the first rehash";
            }
        }
        pair.verify(true);
    }
}

TEST(HashMap, growsByItselfUpToSixteenThousandNineHundredAndElevenEntries) {
    for (CodUint32 entries : {16911u, 16912u}) {
        SCOPED_TRACE(entries);
        KeyKind kind("identity", hashIdentity, compareInts, 17000u,
                     [](CodUint32 id) -> CodUint64 { return id == 0 ? HMAP_MAX_BUCKETS - 1 : id; });
        MapAgainstModel pair(kind, false, HMAP_MAX_BUCKETS);
        pair.injectFailures = false;
        pair.add(0);
        ASSERT_EQ(codHMapExpand(&pair.map(), 512), COD_SUCCESS);
        ASSERT_EQ(pair.model().expand(512, false), 0u);
        for (CodUint32 id = 1; id < entries; id++) {
            pair.add(id);
        }
        pair.verify(false);
        EXPECT_GT(pair.map().rehashIdx, 0) << "the one far entry keeps the rehash going";
        EXPECT_FALSE(codHMapRehashStep(&pair.map(), UINT32_MAX));
        EXPECT_EQ(pair.map().hashTable[0].size, 512u);
        EXPECT_EQ(pair.map().hashTable[0].used, entries);
        pair.model().rehashSteps(UINT32_MAX);
        pair.add(entries);
        pair.verify(true);
        EXPECT_EQ(pair.map().hashTable[1].size, entries == 16911 ? 65536u : 0u);
    }
}

StHmapInitCallbackSet plainCallbacks() {
    return {codHashCompareUint64, codHashCalcUint64, takeMemory, giveMemory, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
}

TEST(HashMap, roundsItsSizeUpToAPowerOfTwo) {
    struct {
        CodUint32 size, buckets;
    } rows[] = {{0, 1},
                {1, 1},
                {2, 2},
                {3, 4},
                {4, 4},
                {5, 8},
                {65535, 65536},
                {65537, 131072},
                {524289, 1048576},
                {1048576, 1048576},
                {1048577, 1048576},
                {5000000, 1048576},
                {0x80000001u, 1048576},
                {UINT32_MAX, 1048576}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.size);
        Memory memory;
        CodHashMap map;
        std::memset(&map, 0x5a, sizeof(map));
        map.mctx = &memory;
        StHmapInitCallbackSet callbacks = plainCallbacks();
        ASSERT_EQ(codHMapInit(&map, &callbacks, row.size), COD_SUCCESS);
        EXPECT_EQ(memory.lastSize, row.buckets * 8);
        EXPECT_EQ(map.hashTable[0].size, row.buckets);
        EXPECT_EQ(map.hashTable[0].sizeMask, row.buckets - 1);
        EXPECT_EQ(map.hashTable[1].table, nullptr);
        EXPECT_EQ(map.rehashIdx, -1);
        EXPECT_EQ(map.tableType, 0);
        EXPECT_EQ(map.memType, 0x5a);
        EXPECT_EQ(map.switchThreshold, 0x5a5a);
        EXPECT_TRUE(callbacks.get == arrayTableGet && callbacks.set == arrayTableSet && callbacks.init == arrayTableInit &&
                    callbacks.release == arrayTableRelease);
        EXPECT_EQ(codHMapExpand(&map, row.size), COD_SUCCESS);
        EXPECT_EQ(map.rehashIdx, -1);
        codHMapRelease(&map);
        EXPECT_TRUE(memory.live.empty());
    }
}

// ---- Releasing ----

struct Released {
    Memory memory;
    std::set<void *> entries;
    std::map<CodUint64, std::string> calls;  // by the key's number: k, v and e in the order of the calls
};

Released *released(void *mctx) {
    return static_cast<Released *>(mctx);
}

TEST(HashMap, releasesEachKeyValueAndEntryOnce) {
    auto take = [](CodUint32 size, void *mctx) { return takeMemory(size, &released(mctx)->memory); };
    auto give = [](void *ptr, void *mctx) {
        if (released(mctx)->entries.erase(ptr) != 0) {
            released(mctx)->calls[static_cast<CodHashEntry *>(ptr)->key.intValue] += 'e';
        }
        giveMemory(ptr, &released(mctx)->memory);
    };
    auto giveKey = [](CodHashPointer key, void *mctx) { released(mctx)->calls[key.intValue] += 'k'; };
    auto giveValue = [](CodHashPointer value, void *mctx) { released(mctx)->calls[value.intValue - 1000] += 'v'; };
    for (unsigned given = 0; given < 8; given++) {
        for (CodUint64 count : {0u, 1u, 7u, 26u}) {  // at 7 and 26 a rehash is under way
            SCOPED_TRACE(testing::Message() << "callbacks " << given << ", entries " << count);
            Released state;
            CodHashMap map = {};
            map.mctx = &state;
            StHmapInitCallbackSet callbacks = plainCallbacks();
            callbacks.hashCalc = hashIdentity;
            callbacks.hashAlloc = take;
            callbacks.hashFree = give;
            ASSERT_EQ(codHMapInit(&map, &callbacks, 4), COD_SUCCESS);
            std::map<CodUint64, std::string> expected;
            for (CodUint64 i = 0; i < count; i++) {
                CodHashEntry *entry = static_cast<CodHashEntry *>(take(sizeof(CodHashEntry), &state));
                *entry = {nullptr, intKey(i), intKey(i + 1000)};
                state.entries.insert(entry);
                ASSERT_EQ(codHMapAdd(&map, entry), COD_SUCCESS);
                if (given != 0) {
                    expected[i] = std::string(given & 1 ? "k" : "") + (given & 2 ? "v" : "") + (given & 4 ? "e" : "");
                }
            }
            EXPECT_EQ(map.rehashIdx != -1, count > 6);
            map.keyFree = given & 1 ? +giveKey : nullptr;
            map.valFree = given & 2 ? +giveValue : nullptr;
            map.hashFree = given & 4 ? +give : nullptr;
            codHMapRelease(&map);
            codHMapRelease(&map);
            EXPECT_EQ(state.calls, expected);
            EXPECT_TRUE(state.memory.live.empty() || (given & 4) == 0);
            for (const CodHashTable &table : map.hashTable) {
                EXPECT_TRUE(table.table == nullptr && table.size == 0 && table.sizeMask == 0 && table.used == 0);
            }
            EXPECT_TRUE(map.keyCompare == nullptr && map.hashCalc == nullptr && map.hashAlloc == nullptr && map.rehashIdx == -1);
            while (!state.memory.live.empty()) {
                giveMemory(state.memory.live.begin()->first, &state.memory);
            }
        }
    }
}

TEST(HashMap, refusesNullsAndMapsThatAreNotInitialised) {
    CodHashMap map = {}, zero = {};
    Memory memory;
    map.mctx = &memory;
    CodHashEntry entry = {nullptr, intKey(1), intKey(2)};
    CodHashMapIterator iterator;
    CodHMapStats stats;
    StHmapInitCallbackSet callbacks = plainCallbacks();
    const std::function<CodResult()> calls[] = {
        [&] { return codHMapInit(nullptr, &callbacks, 1); },
        [&] { return codHMapInit(&map, nullptr, 1); },
        [&] { return codHmapInitWithCallback(nullptr, &callbacks, 1); },
        [&] { return codHmapInitWithCallback(&map, nullptr, 1); },
        [&] { return codHMapExpand(nullptr, 1); },
        [&] { return codHMapReserve(nullptr, 1); },
        [&] { return codHMapAdd(nullptr, &entry); },
        [&] { return codHMapAdd(&map, nullptr); },
    };
    for (const auto &call : calls) {
        expectError(ERR_CMM_POINTER_NULL, "null pointer", call);
    }
    StHmapInitCallbackSet full = plainCallbacks();
    ASSERT_EQ(codHMapInit(&map, &full, 1), COD_SUCCESS);
    codHMapRelease(&map);
    for (std::size_t member = 0; member < sizeof(full) / sizeof(void *); member++) {
        bool optional = member >= 3 && member <= 5;  // hashFree, keyFree, valueFree
        StHmapInitCallbackSet holed = full;
        std::memset(reinterpret_cast<char *>(&holed) + member * sizeof(void *), 0, sizeof(void *));
        if (!optional) {
            SCOPED_TRACE(member);
            expectError(ERR_CMM_POINTER_NULL, "null pointer", [&] { return codHmapInitWithCallback(&map, &holed, 1); });
        }
        if (member < 3) {
            expectError(ERR_CMM_POINTER_NULL, "null pointer", [&] { return codHMapInit(&map, &holed, 1); });
        }
    }
    EXPECT_TRUE(memory.live.empty());
    EXPECT_EQ(codHMapFind(nullptr, entry.key), nullptr);
    EXPECT_EQ(codHMapDelete(nullptr, entry.key), nullptr);
    codHMapInitIterator(nullptr, &iterator);
    codHMapInitIterator(&zero, &iterator);
    EXPECT_EQ(codHMapGetNext(nullptr, &iterator), nullptr);
    EXPECT_FALSE(codHMapRehashStep(nullptr, 1));
    codHMapStats(nullptr, &stats);
    codHMapRelease(nullptr);

    ASSERT_EQ(codHMapInit(&map, &callbacks, 1), COD_SUCCESS);
    ASSERT_EQ(codHMapAdd(&map, &entry), COD_SUCCESS);
    for (CodInt32 outside : {-1, 2, INT32_MAX, INT32_MIN}) {
        codHMapInitIterator(&map, &iterator);
        iterator.tableIdx = outside;
        EXPECT_EQ(codHMapGetNext(&map, &iterator), nullptr);
    }
    EXPECT_EQ(codHMapDelete(&map, entry.key), &entry);
    codHMapRelease(&map);
    for (CodHashMap *unusable : {&map, &zero}) {
        expectError(ERR_CMM_INVALID_PARAMETER, "", [&] { return codHMapAdd(unusable, &entry); });
        expectError(ERR_CMM_INVALID_PARAMETER, "", [&] { return codHMapReserve(unusable, 4); });
        EXPECT_EQ(codHMapFind(unusable, entry.key), nullptr);
        EXPECT_EQ(codHMapDelete(unusable, entry.key), nullptr);
        codHMapInitIterator(unusable, &iterator);
        EXPECT_EQ(codHMapGetNext(unusable, &iterator), nullptr);
    }
}

TEST(HashMap, readyHashSpreadsKeysOfAnyStride) {
    constexpr CodUint32 kKeys = 4096;
    for (int shift = 0; shift <= 52; shift++) {
        std::vector<CodUint32> buckets(kKeys);
        for (CodUint64 i = 0; i < kKeys; i++) {
            buckets[codHashCalcUint64(intKey(i << shift)) % kKeys]++;
        }
        EXPECT_LE(*std::max_element(buckets.begin(), buckets.end()), 32u) << "keys 2^" << shift << " apart; a random spread gives 6 to 8";
    }
}

}  // namespace
