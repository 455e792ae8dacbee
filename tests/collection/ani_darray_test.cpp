#include <vel_infra/collection/ani_darray.h>

#include "support/collection_support.h"

namespace {

using collection_support::AccountingAlloc;
using collection_support::expectError;
using collection_support::Operation;
using collection_support::Random;
using collection_support::runOneOf;
using Item = std::vector<CodUint8>;
using Blocks = std::map<void *, CodUint32>;

// The functions that have an inline body stand behind their exported names too; both are the contract.
CodResult (*volatile exportedPushBack)(CodDArray *, const void *) = codDArrayPushBackItem;
CodResult (*volatile exportedNewItem)(CodDArray *, void **) = codDArrayNewItem;

std::string outOfIndex(CodUint32 index, CodUint32 last) {
    return "index " + std::to_string(index) + " is out of [0, " + std::to_string(last) + "]";
}

CodUint32 comparedSize;
const void *searchedKey;

CodInt32 compareBytes(const void *left, const void *right) {
    return std::memcmp(left, right, comparedSize);
}

CodInt32 compareKeyFirst(const void *left, const void *right) {
    EXPECT_EQ(left, searchedKey);
    return compareBytes(left, right);
}

// The array beside a plain list of items; each operation runs on both.
class DArrayAgainstModel {
public:
    DArrayAgainstModel(CodUint32 itemSize, AccountingAlloc::Kind kind) : itemSize_(itemSize), random_(itemSize), alloc_(kind) {
        start(0);
    }

    void run(int steps) {
        for (int i = 0; i < steps && !testing::Test::HasFailure(); i++) {
            runOneOf(operations_, random_);
            verify();
        }
        codDArrayRelease(&array_);
        EXPECT_TRUE(alloc_.live.empty() || alloc_.free == nullptr);
    }

private:
    void start(CodUint32 initCapacity) {
        codDArrayInit(&array_, itemSize_, &alloc_, initCapacity);
        initCapacity_ = initCapacity == 0 ? 8 : initCapacity;
        model_.clear();
        capacity_ = 0;
    }

    CodUint32 size() const {
        return static_cast<CodUint32>(model_.size());
    }
    CodUint32 place() {
        return random_.below(size() + 1);
    }  // where an item can be put
    // The bytes of a new item, or now and then an item of the array itself.
    const CodUint8 *anyItem() {
        scratch_ = random_.bytes(itemSize_);
        return model_.empty() || !random_.oneIn(3) ? scratch_.data() : own(random_.below(size()));
    }

    CodUint8 *own(CodUint32 index) {
        return static_cast<CodUint8 *>(codDArrayAt(&array_, index));
    }
    std::uintptr_t address(std::int64_t offset) {
        return reinterpret_cast<std::uintptr_t>(array_.ptr) + static_cast<std::uintptr_t>(offset);
    }

    // Fails every allocation of the call in turn, which must leave the array as it was, until the call succeeds.
    template <typename Call>
    void grow(Call call) {
        int failures = 0;
        for (codFailAllocAfter(0); call() != COD_SUCCESS; codFailAllocAfter(failures)) {
            EXPECT_EQ(codGetErrorCode(), ERR_CMM_ALLOC_MEMORY);
            codCleanError();
            ASSERT_LT(++failures, 10);
            verify();
        }
        codFailAllocAfter(-1);
        bool full = size() == capacity_;
        // An extension may find room in the block that it has.
        EXPECT_TRUE((failures > 0) == full || (capacity_ != 0 && alloc_.extend != nullptr));
        capacity_ = !full ? capacity_ : capacity_ == 0 ? initCapacity_ : capacity_ * 2;
    }

    void append(const CodUint8 *item) {
        Item copy(item, item + itemSize_);
        bool inlined = random_.oneIn(2);
        grow([&] { return inlined ? codDArrayPushBackItem(&array_, item) : exportedPushBack(&array_, item); });
        model_.push_back(copy);
    }

    void appendInPlace() {
        void *added = nullptr;
        bool inlined = random_.oneIn(2);
        grow([&] {
            added = &added;
            CodResult result = inlined ? codDArrayNewItem(&array_, &added) : exportedNewItem(&array_, &added);
            EXPECT_EQ(added == nullptr, result != COD_SUCCESS);
            return result;
        });
        model_.push_back(random_.bytes(itemSize_));
        ASSERT_EQ(added, own(size() - 1));
        std::memcpy(added, model_.back().data(), itemSize_);
    }

    void insert(const CodUint8 *item, CodUint32 index) {
        Item copy(item, item + itemSize_);
        grow([&] { return codDArrayPutItem(&array_, item, index); });
        model_.insert(model_.begin() + index, copy);
    }

    void remove() {
        if (model_.empty()) {
            return;
        }
        CodUint32 index = random_.below(size());
        model_.erase(model_.begin() + index);
        ASSERT_EQ(codDArrayRemove(&array_, index), COD_SUCCESS);
    }

    void refuseOutside() {
        CodUint32 count = size(), index = count + random_.below(3);
        EXPECT_EQ(codDArrayAt(&array_, index), nullptr);
        expectError(ERR_CMM_OUT_OF_INDEX, outOfIndex(index, count), [&] { return codDArrayRemove(&array_, index); });
        expectError(ERR_CMM_OUT_OF_INDEX, outOfIndex(index + 1, count), [&] { return codDArrayPutItem(&array_, anyItem(), index + 1); });
    }

    void indexOfAddress() {
        if (model_.empty()) {
            CodUint32 index = 0;
            expectError(ERR_CMM_OUT_OF_INDEX, "", [&] { return codDArrayItemIndex(&array_, &index, &index); });
            return;
        }
        std::int64_t lastStart = static_cast<std::int64_t>(model_.size() - 1) * itemSize_;
        std::int64_t offset = static_cast<std::int64_t>(random_.below(static_cast<CodUint32>(lastStart) + itemSize_ + 6)) - 3;
        const void *item = reinterpret_cast<const void *>(address(offset));
        CodUint32 index = 0;
        if (offset >= 0 && offset <= lastStart) {
            EXPECT_EQ(codDArrayItemIndex(&array_, item, &index), COD_SUCCESS);
            EXPECT_EQ(index, offset / itemSize_);
        } else {
            expectError(ERR_CMM_OUT_OF_INDEX, outOfIndex(static_cast<CodUint32>(offset), static_cast<CodUint32>(lastStart)),
                        [&] { return codDArrayItemIndex(&array_, item, &index); });
        }
    }

    void sort() {
        comparedSize = itemSize_;
        codDArrayQuickSort(&array_, compareBytes);
        std::sort(model_.begin(), model_.end());
    }

    void search() {
        sort();
        Item key = model_.empty() || random_.oneIn(2) ? random_.bytes(itemSize_) : model_[random_.below(size())];
        searchedKey = key.data();
        const void *found = codDArraySearchItem(&array_, key.data(), compareKeyFirst);
        ASSERT_EQ(found != nullptr, std::binary_search(model_.begin(), model_.end(), key));
        if (found != nullptr) {
            CodUint32 index = 0;
            ASSERT_EQ(codDArrayItemIndex(&array_, found, &index), COD_SUCCESS);
            ASSERT_EQ(model_[index], key);
        }
    }

    void move() {
        CodDArray other;
        std::memset(&other, 0xee, sizeof(other));
        CodDArray before = array_;
        codDArrayMove(&other, &array_);
        CodDArray zero = {};
        EXPECT_EQ(std::memcmp(&other, &before, sizeof(other)), 0);
        EXPECT_EQ(std::memcmp(&array_, &zero, sizeof(zero)), 0);
        codDArrayMove(&array_, &other);
        codDArrayMove(&array_, &array_);
    }

    void truncate() {
        if (size() > 300) {
            codDArrayTruncate(&array_);
            model_.clear();
        }
    }

    void restart() {
        codDArrayRelease(&array_);
        CodUint32 initCapacity = random_.below(20);
        start(random_.below(20));
        codDArraySetInitCapacity(&array_, initCapacity);
        initCapacity_ = initCapacity == 0 ? 8 : initCapacity;
    }

    void verify() {
        ASSERT_EQ(codDArrayCount(&array_), model_.size());
        ASSERT_EQ(codDArrayLastItemId(&array_), size() - 1);
        ASSERT_EQ(array_.capacity, capacity_);
        ASSERT_EQ(codDArrayGetOwner(&array_), &alloc_);
        if (alloc_.free != nullptr) {
            ASSERT_EQ(alloc_.live, array_.ptr == nullptr ? Blocks() : Blocks({{array_.ptr, capacity_ * itemSize_}}));
        }
        for (CodUint32 i = 0; i < model_.size(); i++) {
            ASSERT_EQ(reinterpret_cast<std::uintptr_t>(own(i)), address(static_cast<std::int64_t>(i) * itemSize_));
            ASSERT_EQ(std::memcmp(own(i), model_[i].data(), itemSize_), 0) << "item " << i;
        }
    }

    CodUint32 itemSize_;
    Random random_;
    AccountingAlloc alloc_;
    CodDArray array_;
    std::vector<Item> model_;
    Item scratch_;
    CodUint32 initCapacity_ = 8;
    CodUint32 capacity_ = 0;
    const std::vector<Operation> operations_ = {
        {40, [this] { append(anyItem()); }},
        {20, [this] { appendInPlace(); }},
        {40, [this] { insert(anyItem(), place()); }},
        {60, [this] { remove(); }},
        {20, [this] { refuseOutside(); }},
        {40, [this] { indexOfAddress(); }},
        {3, [this] { sort(); }},
        {5, [this] { search(); }},
        {10, [this] { move(); }},
        {2, [this] { truncate(); }},
        {1, [this] { restart(); }},
    };
};

TEST(DArray, behavesAsAListOfItemsWhicheverAllocationFails) {
    for (CodUint32 itemSize : {1u, 3u, 8u, 24u, 100u}) {
        for (AccountingAlloc::Kind kind : {AccountingAlloc::kFull, AccountingAlloc::kWithoutExtend, AccountingAlloc::kWithoutFree}) {
            SCOPED_TRACE(testing::Message() << "item size " << itemSize << ", allocator " << kind);
            DArrayAgainstModel pair(itemSize, kind);
            pair.run(4000);
        }
    }
}

TEST(DArray, refusesSizesOf4GiBAndMoreWithoutAskingForMemory) {
    struct {
        CodUint32 itemSize, initCapacity, capacity;  // capacity 0: nothing allocated yet
        bool fits;
    } rows[] = {
        {0x80000000u, 2, 0, false}, {0x80000000u, 1, 0, true},  {0x20000000u, 0, 0, false}, {0x10000000u, 0, 0, true},
        {0xffffffffu, 1, 0, true},  {0xffffffffu, 1, 1, false}, {1, 0xffffffffu, 0, true},  {3, 0x55555555u, 0, true},
        {3, 0x55555556u, 0, false}, {65537, 65537, 0, false},   {0x10000000u, 0, 8, false}, {1, 8, 0x80000000u, false},
        {1, 8, 0x7fffffffu, true},  {2, 8, 0x40000000u, false}, {2, 8, 0x3fffffffu, true},  {0x40000001u, 8, 2, false},
    };
    static std::uint64_t asked;
    static CodUint8 place;
    CodMemAlloc pretending = {
        [](CodMemAlloc *, CodUint32 size, void **out) {
            asked = size;
            *out = &place;
            return COD_SUCCESS;
        },
        [](CodMemAlloc *, void **, CodUint32, CodUint32 newSize, CodBool) {
            asked = newSize;
            return COD_SUCCESS;
        },
        nullptr,
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << row.itemSize << " bytes, first " << row.initCapacity << ", now " << row.capacity);
        CodDArray array;
        codDArrayInit(&array, row.itemSize, &pretending, row.initCapacity);
        if (row.capacity != 0) {
            array.ptr = &place;
            array.capacity = array.count = row.capacity;
        }
        CodDArray before = array;
        asked = 0;
        void *item = &array;
        if (row.fits) {
            std::uint64_t items = row.capacity != 0 ? 2ull * row.capacity : row.initCapacity != 0 ? row.initCapacity : 8;
            EXPECT_EQ(codDArrayNewItem(&array, &item), COD_SUCCESS);
            EXPECT_EQ(asked, items * row.itemSize);
            EXPECT_EQ(array.capacity, items);
        } else {
            expectError(ERR_CMM_OUT_OF_MEMORY, "", [&] { return codDArrayNewItem(&array, &item); });
            EXPECT_EQ(item, nullptr);
            expectError(ERR_CMM_OUT_OF_MEMORY, "", [&] { return codDArrayPushBackItem(&array, &place); });
            expectError(ERR_CMM_OUT_OF_MEMORY, "", [&] { return codDArrayPutItem(&array, &place, 0); });
            EXPECT_EQ(asked, 0u);
            EXPECT_EQ(std::memcmp(&array, &before, sizeof(array)), 0);
        }
    }
}

TEST(DArray, refusesNullsAndArraysWithoutItemSizeOrOwner) {
    AccountingAlloc alloc;
    CodDArray array;
    codDArrayInit(&array, 8, &alloc, 0);
    std::uint64_t value = 5;
    ASSERT_EQ(codDArrayPushBackItem(&array, &value), COD_SUCCESS);
    CodUint32 index = 0;
    void *item = nullptr;
    const std::function<CodResult()> calls[] = {
        [&] { return codDArrayPushBackItem(nullptr, &value); },
        [&] { return codDArrayPushBackItem(&array, nullptr); },
        [&] { return codDArrayNewItem(nullptr, &item); },
        [&] { return codDArrayNewItem(&array, nullptr); },
        [&] { return codDArrayPutItem(nullptr, &value, 0); },
        [&] { return codDArrayPutItem(&array, nullptr, 0); },
        [&] { return codDArrayItemIndex(nullptr, &value, &index); },
        [&] { return codDArrayItemIndex(&array, array.ptr, nullptr); },
        [&] { return codDArrayRemove(nullptr, 0); },
    };
    for (const auto &call : calls) {
        expectError(ERR_CMM_POINTER_NULL, "null pointer", call);
    }
    EXPECT_EQ(array.count, 1u);

    codDArrayRelease(&array);
    codDArrayRelease(&array);
    EXPECT_TRUE(alloc.live.empty());
    CodDArray never = {}, ownerless;
    codDArrayInit(&ownerless, 8, nullptr, 0);
    for (CodDArray *unusable : {&array, &never, &ownerless}) {
        EXPECT_EQ(unusable->ptr, nullptr);
        EXPECT_EQ(unusable->capacity, 0u);
        EXPECT_EQ(unusable->elementSize, unusable == &ownerless ? 8u : 0u);
        EXPECT_EQ(codDArrayCount(unusable), 0u);
        EXPECT_EQ(codDArrayAt(unusable, 0), nullptr);
        EXPECT_EQ(codDArrayLastItemId(unusable), UINT32_MAX);
        expectError(ERR_CMM_INVALID_PARAMETER, "", [&] { return codDArrayNewItem(unusable, &item); });
        expectError(ERR_CMM_INVALID_PARAMETER, "", [&] { return codDArrayPushBackItem(unusable, &value); });
        expectError(ERR_CMM_INVALID_PARAMETER, "", [&] { return codDArrayPutItem(unusable, &value, 0); });
        comparedSize = 8;
        codDArrayQuickSort(unusable, compareBytes);
        EXPECT_EQ(codDArraySearchItem(unusable, &value, compareBytes), nullptr);
    }
    codDArrayInit(&array, 8, &alloc, 0);
    EXPECT_EQ(codDArrayPushBackItem(&array, &value), COD_SUCCESS);
    codDArrayRelease(&array);
}

using Items = std::vector<std::uint64_t>;
Items releasedItems;

TEST(DArray, releasesItemsInIndexOrderBeforeTheirMemory) {
    auto release = [](void *item) { releasedItems.push_back(*static_cast<std::uint64_t *>(item)); };
    auto releaseTo = [](void *item, void *ctx) { static_cast<Items *>(ctx)->push_back(*static_cast<std::uint64_t *>(item)); };
    for (std::uint64_t count : {0u, 1u, 8u, 9u, 100u, 101u}) {
        AccountingAlloc alloc;
        CodDArray array;
        codDArrayInit(&array, 8, &alloc, 0);
        Items expected, seen;
        for (std::uint64_t i = 0; i < count; i++) {
            expected.push_back(i * 7919);
            ASSERT_EQ(codDArrayPushBackItem(&array, &expected.back()), COD_SUCCESS);
        }
        releasedItems.clear();
        if (count % 2 == 0) {
            codDArrayReleaseWithAllItems(&array, release);
        } else {
            codDArrayReleaseWithAllItemsAndCtx(&array, releaseTo, &seen);
        }
        EXPECT_EQ(count % 2 == 0 ? releasedItems : seen, expected);
        EXPECT_TRUE(alloc.live.empty());
        EXPECT_TRUE(array.ptr == nullptr && array.capacity == 0 && array.count == 0 && array.elementSize == 0);
    }
}

}  // namespace
