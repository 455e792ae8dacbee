#include "table_profile.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <new>

#include <vel_infra/algorithm/ani_hashfunc.h>
#include <vel_infra/error/ani_error_base.h>

#include "printable.h"
#include "work_memory.h"

namespace vel {

namespace {

// What the stored values of all columns may take together; few columns do not take more than a column's own limit each.
constexpr CodUint64 kMemoryOfAllColumns = 512 * 1024 * 1024;

CodResult appendColumn(CodDArray *array, TableColumn *column) {
    return codDArrayPushBackItem(array, &column);
}

}  // namespace

TableProfile::~TableProfile() {
    for (CodUint32 i = 0; i < columnCount(); i++) {
        column(i)->~TableColumn();
    }
    releaseMapOfCarvedEntries(&byName_);
    codDArrayRelease(&selected_);
    codDArrayRelease(&columns_);
    mctxDestroy(memory_);
}

CodResult TableProfile::init(MemoryPool *pool) {
    pool_ = pool;
    codDArrayInit(&columns_, sizeof(TableColumn *), codMemGetSystemAlloc(), 0);
    codDArrayInit(&selected_, sizeof(TableColumn *), codMemGetSystemAlloc(), 0);
    COD_TRY(mctxCreate(pool, &memory_));
    return initMapOfCarvedEntries(&byName_, codHashCompareText, codHashCalcText);
}

TableColumn *TableProfile::column(CodUint32 index) const {
    return static_cast<TableColumn *const *>(columns_.ptr)[index];
}

const TableColumn &TableProfile::selected(CodUint32 index) const {
    return *static_cast<TableColumn *const *>(selected_.ptr)[index];
}

CodResult TableProfile::onField(const CodText &field) {
    if (COD_UNLIKELY(rows_ == 0)) {
        return onFirstRowField(field);
    }
    const CodUint64 index = fieldsOfRow_++;
    if (index >= columnCount()) {
        return COD_SUCCESS;  // told of when the row ends and its number of fields is known
    }
    TableColumn *target = column(static_cast<CodUint32>(index));
    return target->isSelected ? target->profile.add(field) : COD_SUCCESS;
}

// Without a header it is not known yet which columns there are, and so which ones are selected: all take part in the first row.
CodResult TableProfile::onFirstRowField(const CodText &field) {
    char reason[64];
    if (columnCount() == kMaxColumns) {
        snprintf(reason, sizeof(reason), "more than %u columns", kMaxColumns);
        return raiseInRow(reason);
    }
    if (options_.hasHeader) {
        if (field.len > kNameLimit) {
            snprintf(reason, sizeof(reason), "the name of column %u is longer than %u bytes", columnCount() + 1, kNameLimit);
            return raiseInRow(reason);
        }
        return addColumn(field);
    }
    char name[32];
    const int length = snprintf(name, sizeof(name), "column %u", columnCount() + 1);
    COD_TRY(addColumn({name, static_cast<CodUint32>(length), 0}));
    return column(columnCount() - 1)->profile.add(field);
}

CodResult TableProfile::addColumn(const CodText &name) {
    if (codHMapFind(&byName_, CodHashPointer{.ptrValue = const_cast<CodText *>(&name)}) != nullptr) {
        char reason[PrintableName::kNameLimit + 64];
        snprintf(reason, sizeof(reason), "column \"%s\" is named twice", PrintableName(name).str());
        return raiseInRow(reason);
    }
    void *place = nullptr;
    COD_TRY(mctxAlloc(memory_, sizeof(TableColumn), &place));
    auto *added = new (place) TableColumn();
    added->number = columnCount() + 1;
    added->profile.init(pool_, memory_, options_.collation, options_.hasHeader ? 2 : 1);
    COD_TRY(mctxCopyText(memory_, &name, &added->name));
    added->link.key.ptrValue = &added->name;
    COD_TRY(codHMapAdd(&byName_, &added->link));
    return appendColumn(&columns_, added);
}

CodResult TableProfile::onRow() {
    if (rows_ == 0) {
        COD_TRY(selectColumns());
    } else if (fieldsOfRow_ != columnCount()) {
        return raiseFieldCount(options_.name, rows_ + 1, columnCount(), fieldsOfRow_);
    }
    rows_++;
    fieldsOfRow_ = 0;
    return COD_SUCCESS;
}

CodResult TableProfile::finish() {
    return rows_ == 0 ? raiseInRow("the input is empty") : COD_SUCCESS;
}

CodResult TableProfile::selectColumns() {
    if (options_.columns != nullptr) {
        COD_TRY(selectListed());
    } else {
        for (CodUint32 i = 0; i < columnCount(); i++) {
            COD_TRY(select(column(i)));
        }
    }
    shareMemory();
    return COD_SUCCESS;
}

CodResult TableProfile::selectListed() {
    const char *item = options_.columns;
    for (;;) {
        const size_t length = strcspn(item, ",");
        const CodText text = {const_cast<char *>(item), static_cast<CodUint32>(length), 0};
        TableColumn *found = findColumn(text);
        const char *fault = found == nullptr ? "there is no column" : found->isSelected ? "--columns names a column twice:" : nullptr;
        if (fault != nullptr) {
            char reason[2 * PrintableName::kNameLimit + 64];
            snprintf(reason, sizeof(reason), "%s \"%s\" in %s", fault, PrintableName(text).str(), options_.name);
            return codRaise(ERR_CMM_INVALID_PARAMETER, reason);
        }
        COD_TRY(select(found));
        if (item[length] == '\0') {
            return COD_SUCCESS;
        }
        item += length + 1;
    }
}

CodResult TableProfile::select(TableColumn *column) {
    column->isSelected = true;
    return appendColumn(&selected_, column);
}

// A name goes before a number, so that a column that is called "2024" can be had.
TableColumn *TableProfile::findColumn(const CodText &nameOrNumber) const {
    CodHashEntry *entry = codHMapFind(&byName_, CodHashPointer{.ptrValue = const_cast<CodText *>(&nameOrNumber)});
    if (entry != nullptr) {
        static_assert(offsetof(TableColumn, link) == 0);
        return reinterpret_cast<TableColumn *>(entry);
    }
    CodUint32 number = 0;
    const char *end = nameOrNumber.str + nameOrNumber.len;
    const auto [rest, fault] = std::from_chars(nameOrNumber.str, end, number);
    return fault == std::errc() && rest == end && number >= 1 && number <= columnCount() ? column(number - 1) : nullptr;
}

void TableProfile::shareMemory() {
    ValueStore::Limits limits;
    limits.values = options_.valuesPerColumn;
    limits.bytes = std::min(limits.bytes, kMemoryOfAllColumns / selectedCount());
    for (CodUint32 i = 0; i < columnCount(); i++) {
        column(i)->profile.setLimits(limits);
    }
}

CodResult TableProfile::raiseInRow(const char *reason) const {
    return codRaise(ERR_CMM_PARSER_ERROR, options_.name, rows_ + 1, reason);
}

}  // namespace vel
