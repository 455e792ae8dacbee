#ifndef VEL_CSV_READER_H
#define VEL_CSV_READER_H

#include <csv.h>

#include "input_file.h"

namespace vel {

// Receives what a CsvReader finds. A function that returns COD_ERROR has raised the reason, and nothing more is delivered.
class CsvSink {
public:
    virtual CodResult onField(const CodText &field) = 0;  // the bytes are valid for the call
    virtual CodResult onRow() = 0;                        // the row's last field has been delivered

protected:
    ~CsvSink() = default;
};

// Splits CSV (RFC 4180 with any one-byte delimiter) into fields and rows.
//
// Fields keep their blanks. Empty lines between rows are no rows. A row ends with LF, CR LF or CR. A byte order mark of UTF-8 at the
// beginning is skipped. The pieces in which the bytes are fed make no difference.
//
// All failures but the system's are ERR_CMM_PARSER_ERROR with the name of the input and the row, counted from 1, header included:
// a quote inside an unquoted field or text behind a closing one, a quote that is never closed, a zero byte, a field longer than
// kFieldLimit.
class CsvReader final : public PieceSink {
public:
    static constexpr CodUint32 kFieldLimit = 1024 * 1024;

    // name, for messages, and sink must outlive the reader.
    CsvReader(const char *name, CsvSink *sink) : name_(name), sink_(sink) {}
    ~CsvReader();
    CsvReader(const CsvReader &) = delete;
    CsvReader &operator=(const CsvReader &) = delete;

    // Errors: those of codSysAlloc.
    CodResult init(char delimiter);
    CodResult feed(const char *bytes, CodUint64 size) override;
    // Delivers what is left.
    CodResult finish() override;
    CodUint64 rows() const override {
        return rows_;
    }

private:
    static void fieldCallback(void *bytes, size_t size, void *reader);
    static void rowCallback(int terminator, void *reader);
    void takeField(char *bytes, size_t size);
    void takeRow();
    CodResult skipMark(const char **bytes, CodUint64 *size);
    CodResult parse(const char *bytes, CodUint64 size);
    CodResult raiseParserError();
    CodResult raiseInField(const char *what) const;

    const char *name_;
    CsvSink *sink_;
    csv_parser parser_ = {};
    bool isInitialised_ = false;
    bool hasFailed_ = false;     // the sink, or a field that is too long: callbacks cannot stop the parser before its piece ends
    bool isAtStart_ = true;      // all bytes so far may belong to the byte order mark
    CodUint32 markBytes_ = 0;    // of the mark, matched
    CodUint64 rows_ = 0;         // finished
    CodUint64 fieldsOfRow_ = 0;  // finished, of the row being read
};

// ERR_CMM_PARSER_ERROR for a row that has another number of fields than the first one.
CodResult raiseFieldCount(const char *name, CodUint64 row, CodUint64 expected, CodUint64 found);

}  // namespace vel

#endif
