#include <vel_infra/collection/ani_hashmap.h>

#include <bit>
#include <set>
#include <utility>

#include <vel_infra/algorithm/ani_hashfunc.h>

#include "support/collection_support.h"

namespace {

using namespace collection_support;
using Ids = std::vector<CodUint32>;

// The functions that have an inline body stand behind their exported names too; both are the contract.
CodResult (*volatile exportedAdd)(CodHashMap *, CodHashEntry *) = codHMapAdd;
CodHashEntry *(*volatile exportedFind)(const CodHashMap *, CodHashPointer) = codHMapFind;
CodHashEntry *(*volatile exportedDelete)(CodHashMap *, CodHashPointer) = codHMapDelete;

// ---- Kinds of keys ----

struct KeyKind {
    const char *name;
    CodHashCalc hash;
    CodHashKeyCompare compare;
    CodUint32 ids;
    CodHashPointer (*key)(CodUint32 id, bool probe);  // a probe is an equal key, of other bits where keys are pointers
};

template <int shift>
CodHashPointer spaced(CodUint32 id, bool) {
    return {.intValue = CodUint64{id} << shift};
}

CodHashPointer scattered(CodUint32 id, bool) {
    CodUint64 word = (id + 1) * 0x9e3779b97f4a7c15u;
    return {.intValue = word ^ (word >> 32)};
}

template <typename Record, typename Char>
CodHashPointer recordOf(CodUint32 id, bool probe) {
    static std::map<CodUint32, std::pair<std::string, Record>> keys;
    auto [place, isNew] = keys.try_emplace(2 * id + probe);
    auto &[content, record] = place->second;
    if (isNew) {
        content = id == 0 ? "" : std::string(id / 256, '\0') + static_cast<char>(id);
        record = {id == 0 && probe ? nullptr : reinterpret_cast<Char *>(content.data()), static_cast<CodUint32>(content.size()), probe};
    }
    return {.ptrValue = &record};
}

constexpr CodHashCalc kIdentity = [](CodHashPointer key) { return static_cast<CodUint32>(key.intValue); };
constexpr CodHashCalc kLowBits = [](CodHashPointer key) { return static_cast<CodUint32>(key.intValue & 7); };
constexpr CodHashCalc kConstant = [](CodHashPointer) { return 0u; };
constexpr CodHashKeyCompare kNeverEqual = [](CodHashPointer, CodHashPointer) { return 1; };

const KeyKind kKeyKinds[] = {
    {"ready, sequential", codHashCalcUint64, codHashCompareUint64, 3000, spaced<0>},
    {"ready, high half", codHashCalcUint64, codHashCompareUint64, 3000, spaced<32>},
    {"ready hash alone", codHashCalcUint64, kNeverEqual, 1000, scattered},
    {"identity", kIdentity, codHashCompareUint64, 3000, spaced<0>},
    {"identity of scattered", kIdentity, codHashCompareUint64, 3000, scattered},
    {"high bits only", kIdentity, codHashCompareUint64, 300, spaced<20>},
    {"constant", kConstant, codHashCompareUint64, 200, spaced<0>},
    {"low bits; the key's bits alone decide", kLowBits, kNeverEqual, 600, scattered},
    {"texts", codHashCalcText, codHashCompareText, 1500, recordOf<CodText, CodChar>},
    {"byte strings", codHashCalcBytes, codHashCompareBytes, 1500, recordOf<CodBytes, CodUint8>},
    {"texts, keyed", codHashCalcTextKeyed, codHashCompareText, 1500, recordOf<CodText, CodChar>},
    {"byte strings, keyed", codHashCalcBytesKeyed, codHashCompareBytes, 1500, recordOf<CodBytes, CodUint8>},
};

// ---- Callbacks ----

// mctx of the maps below: the live bucket arrays, and what else was freed.
struct Context : WatchedMemory {
    std::multiset<std::pair<char, CodUint64>> freed;
};
Context &contextOf(void *mctx) {
    return *static_cast<Context *>(mctx);
}

constexpr CodHashAlloc kTake = [](CodUint32 size, void *mctx) {
    void *block = nullptr;
    return WatchedMemory::take(&contextOf(mctx), size, &block) == COD_SUCCESS ? block : nullptr;
};
// The entries are the tests' own; a freed one is spoilt.
constexpr CodHashFree kFree = [](void *ptr, void *mctx) {
    if (contextOf(mctx).live.count(ptr) != 0) {
        return WatchedMemory::give(&contextOf(mctx), ptr);
    }
    contextOf(mctx).freed.insert({'e', std::exchange(static_cast<CodHashEntry *>(ptr)->value.intValue, ~0ull)});
    static_cast<CodHashEntry *>(ptr)->key.intValue = ~0ull;
};
constexpr CodHashKeyFree kFreeKey = [](CodHashPointer key, void *mctx) { contextOf(mctx).freed.insert({'k', key.intValue}); };
constexpr CodHashValueFree kFreeValue = [](CodHashPointer value, void *mctx) { contextOf(mctx).freed.insert({'v', value.intValue}); };

// Buckets of the caller's own: heads are kept complemented, so that no other callbacks can read them.
constexpr CodHashTableGet kGet = [](void *table, CodUint32 i) {
    return reinterpret_cast<CodHashEntry *>(~static_cast<CodUint64 *>(table)[i]);
};
constexpr CodHashTableSet kSet = [](void *table, CodUint32 i, CodHashEntry *entry) {
    static_cast<CodUint64 *>(table)[i] = ~reinterpret_cast<CodUint64>(entry);
};
constexpr CodHashTableInit kInit = [](CodHashMap *map, void **table, CodUint32 byteSize) {
    *table = map->hashAlloc(byteSize, map->mctx);
    return *table != nullptr ? std::memset(*table, 0xff, byteSize), COD_SUCCESS : COD_ERROR;
};
constexpr CodHashTableRelease kRelease = [](CodHashMap *map, void *table) { WatchedMemory::give(&contextOf(map->mctx), table); };

StHmapInitCallbackSet callbacksOf(CodHashCalc hash, CodHashKeyCompare compare) {
    return {compare, hash, kTake, kFree, kFreeKey, kFreeValue, kGet, kSet, kInit, kRelease};
}

// ---- The rules of growth and rehashing over lists of key numbers; each function gives 0 or the code of its error ----

struct Model {
    struct Table {
        std::vector<Ids> buckets;  // the head of the chain first
        CodUint32 used = 0;
    };

    Ids &chain(Table &table, CodUint32 id) {
        return table.buckets[hashes[id] % table.buckets.size()];
    }
    void link(Table &table, CodUint32 id) {
        chain(table, id).insert(chain(table, id).begin(), id);
        table.used++;
    }

    CodError expand(CodUint32 size) {
        if (rehashIdx != -1 || size < tables[0].used) {
            return rehashIdx != -1 ? ERR_CMM_NOT_IMPLEMENTED : ERR_CMM_INVALID_PARAMETER;
        }
        CodUint32 buckets = std::bit_ceil(std::clamp(size, 1u, 1048576u));
        if (buckets != tables[0].buckets.size()) {
            rehashIdx = tables[0].buckets.empty() ? -1 : 0;
            tables[rehashIdx + 1].buckets.resize(buckets);
            asked = 8 * buckets;
        }
        return 0;
    }

    CodError add(CodUint32 id) {
        CodUint32 doubled = 2 * tables[0].used;
        if (rehashIdx != -1) {
            rehash(1);
        } else if (doubled >= 3 * tables[0].buckets.size() && doubled <= 33823) {
            expand(doubled);
        }
        if (!present.insert(id).second) {
            return ERR_CMM_DUPLICATE_OBJECT;
        }
        link(tables[rehashIdx != -1], id);
        return 0;
    }

    void erase(CodUint32 id) {
        rehash(present.empty() ? 0 : 1);
        for (Table &table : tables) {
            table.used -= table.buckets.empty() ? 0 : static_cast<CodUint32>(std::erase(chain(table, id), id));
        }
        present.erase(id);
    }

    void step() {
        auto bucket = [&]() -> Ids & { return tables[0].buckets.at(static_cast<CodUint32>(rehashIdx)); };
        for (int skipped = 1; tables[0].used != 0 && bucket().empty(); skipped++) {
            rehashIdx++;
            if (skipped == 10) {
                return;
            }
        }
        if (tables[0].used != 0) {
            tables[0].used -= static_cast<CodUint32>(bucket().size());
            std::for_each(bucket().begin(), bucket().end(), [&](CodUint32 id) { link(tables[1], id); });
            bucket().clear();
            rehashIdx++;
        }
        if (tables[0].used == 0) {
            tables[0] = std::exchange(tables[1], {});
            rehashIdx = -1;
        }
    }
    void rehash(CodUint32 steps) {
        for (; steps > 0 && rehashIdx != -1; steps--) {
            step();
        }
    }

    Ids walk() const {
        Ids ids;
        for (const Table &table : tables) {
            std::for_each(table.buckets.begin(), table.buckets.end(), [&](const Ids &c) { ids.insert(ids.end(), c.begin(), c.end()); });
        }
        return ids;
    }

    Ids hashes;
    std::set<CodUint32> present;
    Table tables[2];
    CodInt32 rehashIdx = -1;
    CodUint32 asked = 0;  // bytes of the bucket array that the operation takes
};

// ---- The map beside the model ----

class MapAgainstModel {
public:
    MapAgainstModel(const KeyKind &kind, bool ownTable, CodUint32 size) : kind_(kind), random_(size + kind.ids), entries_(kind.ids) {
        for (CodUint32 id = 0; id < kind.ids; id++) {
            model.hashes.push_back(kind.hash(kind.key(id, false)));
            EXPECT_EQ(model.hashes[id], kind.hash(kind.key(id, true))) << "equal keys have equal hashes";
        }
        std::memset(&map, 0x5a, sizeof(map));
        map.mctx = &context_;
        StHmapInitCallbackSet callbacks = callbacksOf(kind.hash, kind.compare);
        expect(model.expand(size),
               [&] { return ownTable ? codHmapInitWithCallback(&map, &callbacks, size) : codHMapInit(&map, &callbacks, size); });
        EXPECT_EQ(map.tableType, ownTable ? 0x5a : 0);
        EXPECT_EQ(map.memType, 0x5a) << "the caller's own";
        verify(true);
    }

    // Adds and deletes so that the number of entries wanders towards `target`, with everything else in between.
    void run(int steps, CodUint32 target) {
        target_ = target;
        for (int i = 0; i < steps && !testing::Test::HasFailure(); i++) {
            runOneOf(operations_, random_);
            verify(i % 100 == 0);
        }
    }

    void add(CodUint32 id) {
        bool held = model.present.count(id) != 0;
        CodHashEntry other = {nullptr, kind_.key(id, true), {}}, *entry = held ? &other : &entries_[id];
        if (!held) {
            *entry = {reinterpret_cast<CodHashEntry *>(this), kind_.key(id, false), {.intValue = id}};
        }
        bool inlined = random_.oneIn(2);
        expect(model.add(id), [&] { return inlined ? codHMapAdd(&map, entry) : exportedAdd(&map, entry); });
    }

    void expand(CodUint32 size) {
        expect(model.expand(size), [&] { return codHMapExpand(&map, size); });
    }

    void rehash(CodUint32 steps) {
        model.rehash(steps);
        ASSERT_EQ(codHMapRehashStep(&map, steps), model.rehashIdx != -1);
    }

    void verify(bool thoroughly) {
        ASSERT_EQ(map.rehashIdx, model.rehashIdx);
        for (int i = 0; i < 2; i++) {
            const CodHashTable &table = map.hashTable[i];
            ASSERT_EQ(table.size, model.tables[i].buckets.size()) << "table " << i;
            ASSERT_EQ(table.sizeMask, table.size == 0 ? 0 : table.size - 1) << "table " << i;
            ASSERT_EQ(table.used, model.tables[i].used) << "table " << i;
            ASSERT_EQ(table.table == nullptr, table.size == 0) << "table " << i;
        }
        ASSERT_EQ(context_.live.size(), 1u + (model.rehashIdx != -1));
        if (thoroughly) {
            verifyChains();
            for (CodUint32 id = 0; id < kind_.ids; id++) {
                find(id);
            }
        }
    }

    // Frees all with every other set of callbacks.
    void release() {
        static unsigned given = 0;
        given++;
        map.keyFree = (given & 1) != 0 ? map.keyFree : nullptr;
        map.valFree = (given & 2) != 0 ? map.valFree : nullptr;
        map.hashFree = (given & 4) != 0 ? map.hashFree : nullptr;
        bool arraysStay = map.hashFree == nullptr && map.hashTableRelease == arrayTableRelease;
        std::multiset<std::pair<char, CodUint64>> expected;
        for (CodUint32 i = 0; i < 3 * entries_.size(); i++) {
            if (CodUint32 id = i / 3, kind = i % 3; model.present.count(id) != 0 && (given >> kind & 1) != 0) {
                expected.insert({"kve"[kind], kind == 0 ? kind_.key(id, false).intValue : id});
            }
        }
        codHMapRelease(&map);
        codHMapRelease(&map);
        EXPECT_EQ(context_.freed, expected);
        EXPECT_TRUE(context_.live.empty() || arraysStay);
        EXPECT_TRUE(map.hashTable[0].table == nullptr && map.hashTable[1].table == nullptr && map.rehashIdx == -1);
        expectError(ERR_CMM_INVALID_PARAMETER, "", [&] { return codHMapAdd(&map, &entries_[0]); });
        EXPECT_EQ(codHMapFind(&map, kind_.key(0, false)), nullptr);
        EXPECT_EQ(codHMapDelete(&map, kind_.key(0, false)), nullptr);
    }

    CodHashMap map;
    Model model;

private:
    // Runs what the model has run already; where that takes a bucket array, first without memory, which must change nothing.
    template <typename Call>
    void expect(CodError code, Call call) {
        codFailAllocAfter(0);
        if (CodUint32 asked = std::exchange(model.asked, 0)) {
            expectError(ERR_CMM_OUT_OF_MEMORY, "out of memory to allocate hash table of size = " + std::to_string(asked), call);
        }
        if (code == 0) {
            EXPECT_EQ(call(), COD_SUCCESS);
        } else {
            expectError(code, "", call);
        }
        codFailAllocAfter(-1);
    }

    void find(CodUint32 id) {
        const CodHashEntry *expected = model.present.count(id) != 0 ? &entries_[id] : nullptr;
        ASSERT_EQ(codHMapFind(&map, kind_.key(id, true)), expected) << "key " << id;
        ASSERT_EQ(exportedFind(&map, kind_.key(id, false)), expected) << "key " << id;
    }

    void erase(CodUint32 id) {
        CodHashEntry *expected = model.present.count(id) != 0 ? &entries_[id] : nullptr;
        model.erase(id);
        CodHashPointer key = kind_.key(id, true);
        ASSERT_EQ(random_.oneIn(2) ? codHMapDelete(&map, key) : exportedDelete(&map, key), expected);
        entries_[id] = {};
    }

    void expandSomehow() {
        CodUint32 used = map.hashTable[0].used, sizes[] = {0, used - (used != 0), used, used + 1, 2 * used, random_.below(5000)};
        expand(sizes[random_.below(6)]);
    }

    void reserve() {
        CodUint32 size = random_.below(4000);
        model.rehash(UINT32_MAX);
        model.expand(std::max({size, static_cast<CodUint32>(model.tables[0].buckets.size()), model.tables[0].used}));
        model.rehash(UINT32_MAX);
        expect(0, [&] { return codHMapReserve(&map, size); });
    }

    template <typename Visit>
    Ids walk(Visit visit) {
        Ids met;
        CodHashMapIterator iterator;
        codHMapInitIterator(&map, &iterator);
        while (const CodHashEntry *entry = codHMapGetNext(&map, &iterator)) {
            met.push_back(static_cast<CodUint32>(entry->value.intValue));
            if (entry != &entries_.at(met.back()) || model.present.count(met.back()) == 0 || met.size() > 4 * kind_.ids) {
                ADD_FAILURE() << "a deleted entry came back, or the walk does not end";
                break;
            }
            visit(met.back());
        }
        EXPECT_EQ(codHMapGetNext(&map, &iterator), nullptr);
        return met;
    }

    void deleteWhileWalking() {
        bool rehashing = model.rehashIdx != -1;
        CodUint32 kept = random_.below(4);
        Ids before = model.walk(), met = walk([&](CodUint32 id) { random_.below(4) < kept ? void() : erase(id); });
        EXPECT_TRUE(rehashing || met == before);
    }

    void verifyChains() {
        ASSERT_EQ(walk([](CodUint32) {}), model.walk());
        CodHMapStats expected = {}, stats;
        for (const Model::Table &table : model.tables) {
            expected.entries += table.used;
            expected.buckets += static_cast<CodUint32>(table.buckets.size());
            for (const Ids &chain : table.buckets) {
                expected.longestChain = std::max(expected.longestChain, static_cast<CodUint32>(chain.size()));
                expected.chains[std::min<std::size_t>(chain.size(), HMAP_STATS_CHAINS - 1)]++;
            }
        }
        expected.load = static_cast<double>(expected.entries) / expected.buckets;
        codHMapStats(&map, &stats);
        EXPECT_EQ(std::memcmp(&stats, &expected, sizeof(stats)), 0);
    }

    const KeyKind &kind_;
    Random random_;
    Context context_;
    std::vector<CodHashEntry> entries_;
    CodUint32 target_ = 0;
    const std::vector<Operation> operations_ = {
        {120,
         [this] {
             (model.present.size() < target_) != random_.oneIn(5) ? add(random_.below(kind_.ids)) : erase(random_.below(kind_.ids));
         }},
        {40, [this] { find(random_.below(kind_.ids)); }},
        {20, [this] { add(model.present.empty() ? 0 : *model.present.begin()); }},
        {20, [this] { erase(model.present.empty() ? 0 : *model.present.rbegin()); }},
        {6, [this] { expandSomehow(); }},
        {1, [this] { reserve(); }},
        {20, [this] { rehash(random_.oneIn(50) ? UINT32_MAX : random_.below(3)); }},
        {1, [this] { deleteWhileWalking(); }},
    };
};

TEST(HashMap, agreesWithTheModelStepByStepWhicheverAllocationFails) {
    for (const KeyKind &kind : kKeyKinds) {
        for (bool ownTable : {false, true}) {
            SCOPED_TRACE(testing::Message() << kind.name << (ownTable ? ", own buckets" : ""));
            MapAgainstModel pair(kind, ownTable, kind.ids % 7);
            for (CodUint32 percent : {90u, 5u, 50u, 0u, 20u}) {
                pair.run(ownTable ? 700 : 2000, kind.ids * percent / 100);
            }
            pair.verify(true);
            pair.release();
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST(HashMap, roundsItsSizeUpToAPowerOfTwo) {
    for (CodUint32 size : {0u, 1u, 2u, 65537u, 1048576u, 1048577u, 0x80000001u, UINT32_MAX}) {
        MapAgainstModel pair(kKeyKinds[0], false, size);
        pair.expand(size);
        pair.verify(false);
        pair.release();
    }
}

TEST(HashMap, growsByItselfUpToSixteenThousandNineHundredAndElevenEntries) {
    const KeyKind kind = {"one far key", kIdentity, codHashCompareUint64, 17000,
                          [](CodUint32 id, bool) -> CodHashPointer { return {.intValue = id == 0 ? HMAP_MAX_BUCKETS - 1 : id}; }};
    for (CodUint32 entries : {16911u, 16912u}) {
        SCOPED_TRACE(entries);
        MapAgainstModel pair(kind, false, HMAP_MAX_BUCKETS);
        pair.add(0);
        pair.expand(512);
        for (CodUint32 id = 1; id < entries; id++) {
            pair.add(id);
        }
        EXPECT_GT(pair.map.rehashIdx, 0) << "the one far entry keeps the rehash going";
        pair.rehash(UINT32_MAX);
        pair.add(entries);
        pair.verify(true);
        EXPECT_EQ(pair.map.hashTable[1].size, entries == 16911 ? 65536u : 0u);
        pair.release();
    }
}

TEST(HashMap, refusesNullsAndMapsThatAreNotInitialised) {
    Context context;
    CodHashMap map = {}, zero = {};
    map.mctx = &context;
    CodHashEntry entry = {nullptr, {.intValue = 1}, {}};
    CodHashMapIterator iterator;
    CodHMapStats stats;
    StHmapInitCallbackSet full = callbacksOf(codHashCalcUint64, codHashCompareUint64), holed;
    const std::function<CodResult()> calls[] = {
        [&] { return codHMapInit(nullptr, &full, 1); },
        [&] { return codHMapInit(&map, nullptr, 1); },
        [&] { return codHmapInitWithCallback(nullptr, &full, 1); },
        [&] { return codHmapInitWithCallback(&map, nullptr, 1); },
        [&] { return codHMapExpand(nullptr, 1); },
        [&] { return codHMapReserve(nullptr, 1); },
        [&] { return codHMapAdd(nullptr, &entry); },
        [&] { return codHMapAdd(&map, nullptr); },
    };
    for (const auto &call : calls) {
        expectError(ERR_CMM_POINTER_NULL, "null pointer", call);
    }
    expectError(ERR_CMM_INVALID_PARAMETER, "", [&] { return codHMapAdd(&zero, &entry); });
    expectError(ERR_CMM_INVALID_PARAMETER, "", [&] { return codHMapReserve(&zero, 4); });
    for (std::size_t member : {0, 1, 2, 6, 7, 8, 9}) {
        holed = full;
        std::memset(reinterpret_cast<char *>(&holed) + member * sizeof(void *), 0, sizeof(void *));
        expectError(ERR_CMM_POINTER_NULL, "null pointer", [&] { return codHmapInitWithCallback(&map, &holed, 1); });
    }
    for (CodHashMap *unusable : {&zero, static_cast<CodHashMap *>(nullptr)}) {
        EXPECT_EQ(codHMapFind(unusable, entry.key), nullptr);
        EXPECT_EQ(codHMapDelete(unusable, entry.key), nullptr);
        codHMapInitIterator(unusable, &iterator);
        EXPECT_EQ(codHMapGetNext(unusable, &iterator), nullptr);
        EXPECT_FALSE(codHMapRehashStep(unusable, 1));
        codHMapStats(unusable, &stats);
        codHMapRelease(unusable);
    }
}

TEST(HashMap, readyHashesSpreadTheirKeys) {
    for (int shift = 0; shift <= 52; shift++) {
        std::vector<CodUint32> buckets(4096);
        for (CodUint64 i = 0; i < 4096; i++) {
            buckets[codHashCalcUint64({.intValue = i << shift}) % 4096]++;
        }
        EXPECT_LE(*std::max_element(buckets.begin(), buckets.end()), 32u) << "keys 2^" << shift << " apart; a random spread gives 6 to 8";
    }
    for (const KeyKind &kind : kKeyKinds) {
        std::set<CodUint32> hashes;
        for (CodUint32 id = 0; id < 1500; id++) {
            hashes.insert(kind.hash(kind.key(id, false)));
        }
        bool isReady = kind.hash != kConstant && kind.hash != kLowBits;
        EXPECT_GE(hashes.size(), isReady ? 1497u : 1u) << kind.name << ": hardly two of 1500 keys have the same";
    }
}

}  // namespace
