#include <vel_infra/collection/ani_darray.h>

#include "support/collection_support.h"

namespace {

using namespace collection_support;
using Item = std::vector<CodUint8>;
using Items = std::vector<Item>;

// The functions that have an inline body stand behind their exported names too; both are the contract.
CodResult (*volatile exportedPushBack)(CodDArray *, const void *) = codDArrayPushBackItem;
CodResult (*volatile exportedNewItem)(CodDArray *, void **) = codDArrayNewItem;

CodUint32 itemBytes;
const void *searchedKey;
Items releasedItems;

CodInt32 compareItems(const void *left, const void *right) {
    EXPECT_TRUE(searchedKey == nullptr || left == searchedKey);
    return std::memcmp(left, right, itemBytes);
}

void releaseInto(void *item, void *items) {
    const CodUint8 *bytes = static_cast<CodUint8 *>(item);
    static_cast<Items *>(items)->emplace_back(bytes, bytes + itemBytes);
}

// The array beside a plain list of items; each operation runs on both.
class DArrayAgainstModel {
public:
    DArrayAgainstModel(CodUint32 itemSize, bool extends, bool frees) : random_(itemSize) {
        itemBytes = itemSize;
        memory_.extend = extends ? memory_.extend : nullptr;
        memory_.free = frees ? memory_.free : nullptr;
        codDArrayInit(&array_, itemSize, &memory_, 0);
    }

    void run(int steps) {
        for (int i = 0; i < steps && !testing::Test::HasFailure(); i++) {
            runOneOf(operations_, random_);
            verify();
        }
        restart();
        EXPECT_TRUE(memory_.live.empty() || memory_.free == nullptr);
    }

private:
    CodUint32 size() const {
        return static_cast<CodUint32>(model_.size());
    }
    CodUint8 *own(CodUint32 index) {
        return static_cast<CodUint8 *>(codDArrayAt(&array_, index));
    }

    // Adds new bytes or a copy of an item of the array itself. Every allocation fails in turn, which must leave the array as it was.
    void add() {
        CodUint32 index = random_.below(size() + 1), way = random_.below(6), failures = 0;
        Item copy = random_.bytes(itemBytes);
        const CodUint8 *item = copy.data();
        if (size() != 0 && random_.oneIn(3)) {
            CodUint32 source = random_.below(size());
            item = own(source);
            copy = model_[source];
        }
        void *added = &added;
        const std::function<CodResult()> ways[] = {
            [&] { return codDArrayNewItem(&array_, &added); },      [&] { return exportedNewItem(&array_, &added); },
            [&] { return codDArrayPushBackItem(&array_, item); },   [&] { return exportedPushBack(&array_, item); },
            [&] { return codDArrayPutItem(&array_, item, index); },
        };
        for (codFailAllocAfter(0); ways[std::min(way, 4u)]() != COD_SUCCESS; codFailAllocAfter(static_cast<CodInt32>(failures))) {
            EXPECT_EQ(codGetErrorCode(), ERR_CMM_ALLOC_MEMORY);
            EXPECT_EQ(added == nullptr, way < 2);
            codCleanError();
            ASSERT_LT(++failures, 10u);
            verify();
        }
        codFailAllocAfter(-1);
        bool full = size() == capacity_;
        // An extension may find room in the block that it has.
        EXPECT_TRUE((failures > 0) == full || (capacity_ != 0 && memory_.extend != nullptr));
        capacity_ = !full ? capacity_ : capacity_ == 0 ? initCapacity_ : capacity_ * 2;
        if (way < 2) {
            ASSERT_EQ(added, own(size()));
            std::memcpy(added, copy.data(), itemBytes);
        }
        model_.insert(way < 4 ? model_.end() : model_.begin() + index, copy);
    }

    void remove() {
        if (size() != 0) {
            CodUint32 index = random_.below(size());
            model_.erase(model_.begin() + index);
            ASSERT_EQ(codDArrayRemove(&array_, index), COD_SUCCESS);
        }
    }

    void expectOutside(std::int64_t index, std::int64_t last, const std::function<CodResult()> &call) {
        auto text = [](std::int64_t number) { return std::to_string(static_cast<CodUint32>(number)); };
        expectError(ERR_CMM_OUT_OF_INDEX, "index " + text(index) + " is out of [0, " + text(last) + "]", call);
    }

    void refuseOutside() {
        CodUint32 index = size() + random_.below(3);
        EXPECT_EQ(codDArrayAt(&array_, index), nullptr);
        expectOutside(index, size(), [&] { return codDArrayRemove(&array_, index); });
        expectOutside(index + 1, size(), [&] { return codDArrayPutItem(&array_, &index, index + 1); });
    }

    void indexOfAddress() {
        std::int64_t lastStart = (std::int64_t{size()} - 1) * itemBytes;
        std::int64_t offset = std::int64_t{random_.below((size() + 1) * itemBytes + 6)} - 3;
        const void *item = reinterpret_cast<const void *>(reinterpret_cast<std::intptr_t>(array_.ptr) + offset);
        CodUint32 index = 0;
        if (offset >= 0 && offset <= lastStart) {
            EXPECT_EQ(codDArrayItemIndex(&array_, item, &index), COD_SUCCESS);
            EXPECT_EQ(index, offset / itemBytes);
        } else if (item != nullptr) {
            expectOutside(offset, lastStart, [&] { return codDArrayItemIndex(&array_, item, &index); });
        }
    }

    void sortAndSearch() {
        searchedKey = nullptr;
        codDArrayQuickSort(&array_, compareItems);
        std::sort(model_.begin(), model_.end());
        Item key = size() == 0 || random_.oneIn(2) ? random_.bytes(itemBytes) : model_[random_.below(size())];
        searchedKey = key.data();
        const void *found = codDArraySearchItem(&array_, key.data(), compareItems);
        ASSERT_EQ(found != nullptr, std::binary_search(model_.begin(), model_.end(), key));
        ASSERT_TRUE(found == nullptr || std::memcmp(found, key.data(), itemBytes) == 0);
    }

    void move() {
        CodDArray other, zero = {};
        std::memset(&other, 0xee, sizeof(other));
        codDArrayMove(&other, &array_);
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
        CodUint32 way = random_.below(3), initCapacity = random_.below(20);
        releasedItems.clear();
        way == 0   ? codDArrayRelease(&array_)
        : way == 1 ? codDArrayReleaseWithAllItems(&array_, [](void *item) { releaseInto(item, &releasedItems); })
                   : codDArrayReleaseWithAllItemsAndCtx(&array_, releaseInto, &releasedItems);
        EXPECT_EQ(releasedItems, way == 0 ? Items() : model_);
        EXPECT_TRUE(array_.ptr == nullptr && array_.capacity == 0 && array_.count == 0 && array_.elementSize == 0);
        codDArrayInit(&array_, itemBytes, &memory_, way == 0 ? 3 : initCapacity);
        codDArraySetInitCapacity(&array_, initCapacity);
        initCapacity_ = initCapacity == 0 ? 8 : initCapacity;
        capacity_ = 0;
        model_.clear();
    }

    void verify() {
        ASSERT_EQ(codDArrayCount(&array_), model_.size());
        ASSERT_EQ(codDArrayLastItemId(&array_), size() - 1);
        ASSERT_EQ(array_.capacity, capacity_);
        ASSERT_EQ(codDArrayGetOwner(&array_), &memory_);
        if (memory_.free != nullptr) {
            ASSERT_EQ(memory_.live.size(), capacity_ != 0);
            ASSERT_TRUE(capacity_ == 0 || memory_.live.at(array_.ptr) == capacity_ * itemBytes);
        }
        for (CodUint32 i = 0; i < size(); i++) {
            ASSERT_EQ(own(i), static_cast<CodUint8 *>(array_.ptr) + i * itemBytes);
            ASSERT_EQ(std::memcmp(own(i), model_[i].data(), itemBytes), 0) << "item " << i;
        }
    }

    Random random_;
    WatchedMemory memory_;
    CodDArray array_;
    Items model_;
    CodUint32 initCapacity_ = 8;
    CodUint32 capacity_ = 0;
    const std::vector<Operation> operations_ = {
        {100, [this] { add(); }},         {60, [this] { remove(); }}, {20, [this] { refuseOutside(); }}, {40, [this] { indexOfAddress(); }},
        {6, [this] { sortAndSearch(); }}, {10, [this] { move(); }},   {2, [this] { truncate(); }},       {1, [this] { restart(); }},
    };
};

TEST(DArray, behavesAsAListOfItemsWhicheverAllocationFails) {
    for (CodUint32 itemSize : {1u, 3u, 8u, 24u, 100u}) {
        DArrayAgainstModel(itemSize, true, true).run(4000);
        DArrayAgainstModel(itemSize, false, true).run(4000);
        DArrayAgainstModel(itemSize, false, false).run(4000);
    }
}

TEST(DArray, refusesSizesOf4GiBAndMoreWithoutAskingForMemory) {
    static std::uint64_t asked;
    CodMemAlloc pretending = {[](CodMemAlloc *, CodUint32 size, void **out) { return asked = size, *out = &asked, COD_SUCCESS; },
                              [](CodMemAlloc *, void **, CodUint32, CodUint32 size, CodBool) { return asked = size, COD_SUCCESS; },
                              nullptr};
    struct {
        CodUint32 itemSize, initCapacity, capacity;  // capacity 0: nothing allocated yet
    } rows[] = {{0x80000000, 2, 0}, {0x80000000, 1, 0}, {0x20000000, 8, 0}, {0x10000000, 8, 0}, {0xffffffff, 1, 1}, {3, 0x55555555, 0},
                {3, 0x55555556, 0}, {65537, 65537, 0},  {1, 8, 0x80000000}, {1, 8, 0x7fffffff}, {0x40000001, 8, 2}, {2, 8, 0x40000000}};
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << row.itemSize << " bytes, first " << row.initCapacity << ", now " << row.capacity);
        const std::uint64_t items = row.capacity != 0 ? 2ull * row.capacity : row.initCapacity, bytes = items * row.itemSize;
        const bool fits = bytes < (1ull << 32);
        CodDArray array = {&pretending, row.capacity != 0 ? &asked : nullptr, row.itemSize, row.initCapacity, row.capacity, row.capacity};
        void *item = &array;
        asked = 0;
        EXPECT_EQ(codDArrayNewItem(&array, &item), fits ? COD_SUCCESS : COD_ERROR);
        EXPECT_EQ(codGetErrorCode(), fits ? 0 : ERR_CMM_OUT_OF_MEMORY);
        EXPECT_EQ(asked, fits ? bytes : 0);
        EXPECT_EQ(array.capacity, fits ? items : row.capacity);
        EXPECT_EQ(array.count, row.capacity + fits);
        codCleanError();
    }
}

TEST(DArray, refusesNullsAndArraysWithoutItemSizeOrOwner) {
    WatchedMemory memory;
    CodDArray array, released, ownerless, never = {};
    codDArrayInit(&array, 8, &memory, 0);
    codDArrayInit(&released, 8, &memory, 0);
    codDArrayInit(&ownerless, 8, nullptr, 0);
    codDArrayRelease(&released);
    CodUint32 index = 0;
    void *item = nullptr;
    const std::function<CodResult()> calls[] = {
        [&] { return codDArrayPushBackItem(nullptr, &index); },
        [&] { return codDArrayPushBackItem(&array, nullptr); },
        [&] { return codDArrayNewItem(nullptr, &item); },
        [&] { return codDArrayNewItem(&array, nullptr); },
        [&] { return codDArrayPutItem(nullptr, &index, 0); },
        [&] { return codDArrayPutItem(&array, nullptr, 0); },
        [&] { return codDArrayItemIndex(nullptr, &index, &index); },
        [&] { return codDArrayItemIndex(&array, &index, nullptr); },
        [&] { return codDArrayRemove(nullptr, 0); },
    };
    for (const auto &call : calls) {
        expectError(ERR_CMM_POINTER_NULL, "null pointer", call);
    }
    for (CodDArray *unusable : {&released, &never, &ownerless}) {
        expectError(ERR_CMM_INVALID_PARAMETER, "", [&] { return codDArrayNewItem(unusable, &item); });
        codDArrayQuickSort(unusable, compareItems);
        EXPECT_EQ(codDArraySearchItem(unusable, &index, compareItems), nullptr);
        codDArrayRelease(unusable);
    }
}

}  // namespace
