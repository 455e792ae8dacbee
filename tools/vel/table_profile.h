#ifndef VEL_TABLE_PROFILE_H
#define VEL_TABLE_PROFILE_H

#include <vel_infra/collection/ani_darray.h>

#include "column_profile.h"
#include "csv_reader.h"

namespace vel {

struct TableProfileOptions {
    const char *name;  // of the input, printable
    bool hasHeader = true;
    const char *columns = nullptr;            // names or numbers from 1, separated by commas; null: all
    const CodCollation *collation = nullptr;  // that texts are ordered by, one of UTF8; null: UTF8_BINARY_CS
    CodUint32 valuesPerColumn = ValueStore::Limits{}.values;
};

// A column of the input, under its name.
struct TableColumn {
    CodHashEntry link;  // key: the address of name
    CodText name;
    CodUint32 number;  // from 1
    bool isSelected;
    ColumnProfile profile;
};

// Profiles the selected columns of a table that arrives field by field. The first row gives the columns.
//
// Errors of content are ERR_CMM_PARSER_ERROR with name and row: a row with another number of fields than the first one, a column named
// twice, a name longer than kNameLimit, more than kMaxColumns columns, no rows at all. A selected column that does not exist, or that
// is selected twice, is ERR_CMM_INVALID_PARAMETER.
class TableProfile final : public CsvSink {
public:
    static constexpr CodUint32 kMaxColumns = 4096;
    static constexpr CodUint32 kNameLimit = 1024;

    explicit TableProfile(const TableProfileOptions &options) : options_(options) {}
    ~TableProfile();
    TableProfile(const TableProfile &) = delete;
    TableProfile &operator=(const TableProfile &) = delete;

    // The pool must outlive the profile.
    CodResult init(MemoryPool *pool);
    CodResult onField(const CodText &field) override;
    CodResult onRow() override;
    // To be called when all rows have been delivered.
    CodResult finish();

    // Rows of data, without the header.
    CodUint64 rows() const {
        return rows_ - (options_.hasHeader && rows_ > 0 ? 1 : 0);
    }
    // In the order of the selection.
    CodUint32 selectedCount() const {
        return codDArrayCount(&selected_);
    }
    const TableColumn &selected(CodUint32 index) const;

private:
    CodUint32 columnCount() const {
        return codDArrayCount(&columns_);
    }
    TableColumn *column(CodUint32 index) const;
    CodResult onFirstRowField(const CodText &field);
    CodResult addColumn(const CodText &name);
    CodResult selectColumns();
    CodResult selectListed();
    CodResult select(TableColumn *column);
    TableColumn *findColumn(const CodText &nameOrNumber) const;
    void shareMemory();
    CodResult raiseInRow(const char *reason) const;

    TableProfileOptions options_;
    MemoryPool *pool_ = nullptr;
    MemoryContext *memory_ = nullptr;
    CodDArray columns_ = {};   // TableColumn *, all columns of the input
    CodDArray selected_ = {};  // TableColumn *
    CodHashMap byName_ = {};
    CodUint64 rows_ = 0;  // finished, header included
    CodUint64 fieldsOfRow_ = 0;
};

}  // namespace vel

#endif
