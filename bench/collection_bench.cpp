// Array and hash map. Maps hold entries that the caller owns, over random 64-bit keys, with buckets reserved beforehand.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <bit>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <vel_infra/vel_infra.h>

#ifdef VEL_INFRA_WITH_BOOST
#include <boost/intrusive/unordered_set.hpp>
#endif

namespace {

// Random keys. Those of `outside` are in no map: a chance of 2^-40 aside.
struct Keys {
    explicit Keys(size_t count) {
        std::mt19937_64 random(count);
        for (size_t i = 0; i < count; i++) {
            inside.push_back(random());
            outside.push_back(random());
        }
        std::sort(inside.begin(), inside.end());
        inside.erase(std::unique(inside.begin(), inside.end()), inside.end());
        std::shuffle(inside.begin(), inside.end(), random);
        shuffled = inside;
        std::shuffle(shuffled.begin(), shuffled.end(), random);
    }
    std::vector<CodUint64> inside;
    std::vector<CodUint64> shuffled;  // the same, in another order
    std::vector<CodUint64> outside;
};

// ---- The two maps behind one shape ----

class OurMap {
public:
    explicit OurMap(const Keys &keys) : entries_(keys.inside.size()) {
        StHmapInitCallbackSet callbacks{
            codHashCompareUint64, codHashCalcUint64, hashMapMalloc, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
        map_ = {};
        if (codHMapInit(&map_, &callbacks, static_cast<CodUint32>(entries_.size())) != COD_SUCCESS) {
            abort();
        }
    }
    ~OurMap() {
        codSysFree(map_.hashTable[0].table);
    }
    OurMap(const OurMap &) = delete;
    OurMap &operator=(const OurMap &) = delete;

    bool insert(size_t slot, CodUint64 key) {
        entries_[slot].key.intValue = key;
        return codHMapAdd(&map_, &entries_[slot]) == COD_SUCCESS;
    }
    const void *find(CodUint64 key) {
        return codHMapFind(&map_, CodHashPointer{.intValue = key});
    }
    const void *erase(CodUint64 key) {
        return codHMapDelete(&map_, CodHashPointer{.intValue = key});
    }

private:
    CodHashMap map_;
    std::vector<CodHashEntry> entries_;
};

#ifdef VEL_INFRA_WITH_BOOST
namespace bi = boost::intrusive;

struct IntrusiveEntry : bi::unordered_set_base_hook<bi::link_mode<bi::normal_link>> {
    CodUint64 key = 0;
    CodUint64 value = 0;
};
struct KeyOf {
    using type = CodUint64;
    const type &operator()(const IntrusiveEntry &entry) const {
        return entry.key;
    }
};
using IntrusiveSet = bi::unordered_set<IntrusiveEntry, bi::key_of_value<KeyOf>, bi::power_2_buckets<true>, bi::constant_time_size<true>>;

class BoostMap {
public:
    explicit BoostMap(const Keys &keys)
        : entries_(keys.inside.size()),
          buckets_(std::bit_ceil(keys.inside.size())),
          set_(IntrusiveSet::bucket_traits(buckets_.data(), buckets_.size())) {}
    ~BoostMap() {
        set_.clear();
    }

    bool insert(size_t slot, CodUint64 key) {
        entries_[slot].key = key;
        return set_.insert(entries_[slot]).second;
    }
    const void *find(CodUint64 key) {
        const auto found = set_.find(key);
        return found == set_.end() ? nullptr : &*found;
    }
    const void *erase(CodUint64 key) {
        const auto found = set_.find(key);
        if (found == set_.end()) {
            return nullptr;
        }
        const void *entry = &*found;
        set_.erase(found);
        return entry;
    }

private:
    std::vector<IntrusiveEntry> entries_;
    std::vector<IntrusiveSet::bucket_type> buckets_;
    IntrusiveSet set_;
};
#endif

// ---- Work, per key ----

void countKeys(benchmark::State &state, size_t keys) {
    state.counters["ns_per_item"] =
        benchmark::Counter(static_cast<double>(keys) * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

template <class Map>
void fill(Map &map, const Keys &keys) {
    for (size_t i = 0; i < keys.inside.size(); i++) {
        if (!map.insert(i, keys.inside[i])) {
            abort();
        }
    }
}

template <class Map>
void insert(benchmark::State &state) {
    const Keys keys(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        std::optional<Map> map(keys);
        state.ResumeTiming();
        fill(*map, keys);
        state.PauseTiming();
        map.reset();
        state.ResumeTiming();
    }
    countKeys(state, keys.inside.size());
}

template <class Map>
void find(benchmark::State &state, bool hit) {
    const Keys keys(static_cast<size_t>(state.range(0)));
    const std::vector<CodUint64> &wanted = hit ? keys.shuffled : keys.outside;
    Map map(keys);
    fill(map, keys);
    for (auto _ : state) {
        for (const CodUint64 key : wanted) {
            benchmark::DoNotOptimize(map.find(key));
        }
    }
    countKeys(state, wanted.size());
}

template <class Map>
void erase(benchmark::State &state) {
    const Keys keys(static_cast<size_t>(state.range(0)));
    Map map(keys);
    for (auto _ : state) {
        state.PauseTiming();
        fill(map, keys);
        state.ResumeTiming();
        for (const CodUint64 key : keys.shuffled) {
            benchmark::DoNotOptimize(map.erase(key));
        }
    }
    countKeys(state, keys.inside.size());
}

template <class Map>
void registerMap(const std::string &who) {
    for (const long count : {1000, 100000, 1000000}) {
        const std::string size = count == 1000 ? "1k" : count == 100000 ? "100k" : "1M";
        const auto add = [&](const std::string &work, auto function) {
            benchmark::RegisterBenchmark(("hash map " + size + ": " + work + "/" + who).c_str(), function)->Arg(count);
        };
        add("insert", insert<Map>);
        add("find, hit", [](benchmark::State &state) { find<Map>(state, true); });
        add("find, miss", [](benchmark::State &state) { find<Map>(state, false); });
        add("delete", erase<Map>);
    }
}

// The slowest single add while a map of 8,192 buckets fills up and grows to 32,768, the most that adds grow a map to; the median of the
// iterations.
void worstInsert(benchmark::State &state) {
    const Keys keys(50000);
    std::vector<double> worst;
    for (auto _ : state) {
        std::vector<CodHashEntry> entries(keys.inside.size());
        CodHashMap map{};
        StHmapInitCallbackSet callbacks{
            codHashCompareUint64, codHashCalcUint64, hashMapMalloc, hashMapFree, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
        if (codHMapInit(&map, &callbacks, 8192) != COD_SUCCESS) {
            abort();
        }
        CodInstant slowest = 0;
        for (size_t i = 0; i < entries.size(); i++) {
            entries[i].key.intValue = keys.inside[i];
            const CodInstant before = codInstantNow();
            if (codHMapAdd(&map, &entries[i]) != COD_SUCCESS) {
                abort();
            }
            slowest = std::max(slowest, codInstantNow() - before);
        }
        for (const CodHashTable &table : map.hashTable) {
            codSysFree(table.table);
        }
        worst.push_back(static_cast<double>(slowest));
    }
    std::nth_element(worst.begin(), worst.begin() + static_cast<long>(worst.size() / 2), worst.end());
    state.counters["ns_per_item"] = worst[worst.size() / 2];
}
BENCHMARK(worstInsert)->Name("hash map: worst single insert while growing/ours")->Iterations(50);

// What the largest growth cannot avoid: zeroed memory for its buckets.
void zeroedBuckets(benchmark::State &state) {
    for (auto _ : state) {
        void *table = hashMapMalloc(32768 * sizeof(void *), nullptr);
        std::fill_n(static_cast<void **>(table), 32768, nullptr);
        benchmark::DoNotOptimize(table);
        codSysFree(table);
    }
}
BENCHMARK(zeroedBuckets)->Name("hash map: worst single insert while growing/peer: 256 KiB of zeroes (floor)");

// ---- Array ----

constexpr CodUint64 kItems = 1000000;

void push(benchmark::State &state) {
    for (auto _ : state) {
        CodDArray array;
        codDArrayInit(&array, sizeof(CodUint64), codMemGetSystemAlloc(), 0);
        for (CodUint64 i = 0; i < kItems; i++) {
            if (codDArrayPushBackItem(&array, &i) != COD_SUCCESS) {
                abort();
            }
        }
        benchmark::DoNotOptimize(array.ptr);
        codDArrayRelease(&array);
    }
    countKeys(state, kItems);
}
BENCHMARK(push)->Name("array: push 8-byte items to 1M/ours");

void vectorPush(benchmark::State &state) {
    for (auto _ : state) {
        std::vector<CodUint64> items;
        for (CodUint64 i = 0; i < kItems; i++) {
            items.push_back(i);
        }
        benchmark::DoNotOptimize(items.data());
    }
    countKeys(state, kItems);
}
BENCHMARK(vectorPush)->Name("array: push 8-byte items to 1M/peer: std::vector");

[[maybe_unused]] const bool gRegistered = [] {
    registerMap<OurMap>("ours");
#ifdef VEL_INFRA_WITH_BOOST
    registerMap<BoostMap>("peer: boost::intrusive::unordered_set");
#endif
    return true;
}();

}  // namespace
