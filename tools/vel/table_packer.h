#ifndef VEL_TABLE_PACKER_H
#define VEL_TABLE_PACKER_H

#include "csv_reader.h"
#include "packed_column.h"

namespace vel {

struct TablePackerOptions {
    const char *name;  // of the input, printable
    bool hasHeader = true;
    const char *column;  // its name, or its number from 1; a name goes before a number
};

// Packs one column of a table that arrives field by field. The first row gives the columns.
//
// Errors of content are ERR_CMM_PARSER_ERROR with name and row: a field that is no whole number from 0 to 4294967295 or is written in
// another way than unpacking writes it, a row with another number of fields than the first one, the name of the column twice or longer
// than kPackedNameLimit, no rows at all. A column that does not exist is ERR_CMM_INVALID_PARAMETER. The others are the packer's.
class TablePacker final : public CsvSink {
public:
    // The packer must outlive this.
    TablePacker(const TablePackerOptions &options, ColumnPacker *packer);
    TablePacker(const TablePacker &) = delete;
    TablePacker &operator=(const TablePacker &) = delete;

    CodResult onField(const CodText &field) override;
    CodResult onRow() override;
    // To be called when all rows have been delivered.
    CodResult finish();

    // What unpacking writes, as far as the name needs no quotes.
    CodUint64 textBytes() const {
        return textBytes_;
    }

private:
    CodResult onFirstRowField(const CodText &field);
    CodResult choose(const CodText &name);
    CodResult endFirstRow();
    CodResult addValue(const CodText &field);
    CodResult raiseInRow(const char *reason) const;

    TablePackerOptions options_;
    ColumnPacker *packer_;
    CodUint64 number_ = 0;  // that --column may be; 0: none
    CodUint64 chosen_ = 0;  // column, from 1; 0: none yet
    bool isByName_ = false;
    char chosenName_[kPackedNameLimit];
    CodUint32 chosenNameSize_ = 0;
    CodUint64 columnCount_ = 0;
    CodUint64 rows_ = 0;  // finished, header included
    CodUint64 fieldsOfRow_ = 0;
    CodUint64 textBytes_ = 0;
};

}  // namespace vel

#endif
