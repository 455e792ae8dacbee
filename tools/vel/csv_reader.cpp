#include "csv_reader.h"

#include <cstdio>
#include <cstring>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/memory/ani_allocator.h>

namespace vel {

namespace {

constexpr char kMark[] = {'\xEF', '\xBB', '\xBF'};
constexpr char kTooLong[] = "is longer than 1,048,576 bytes";

// The parser's own notion of blanks would take them off both ends of unquoted fields. A function that knows none costs a call per
// unquoted byte, a fifth of the parser's time; masking the blanks of the input and unmasking those of the fields costs about as much.
int isBlank(unsigned char) {
    return 0;
}

// The parser is given its whole field buffer beforehand and refused a larger one, which ends a field that is too long at once. Room for
// the longest field, for the closing quote that stands behind it for a moment, and for one byte more: the buffer must grow when it is
// full, not when it overflows.
constexpr CodUint64 kFieldBufferSize = CsvReader::kFieldLimit + 2;

void *refuseLargerBuffer(void *, size_t) {
    return nullptr;
}

}  // namespace

CsvReader::~CsvReader() {
    if (isInitialised_) {
        csv_free(&parser_);
    }
}

CodResult CsvReader::init(char delimiter) {
    void *buffer = nullptr;
    COD_TRY(codSysAlloc(kFieldBufferSize, &buffer));
    csv_init(&parser_, CSV_STRICT | CSV_STRICT_FINI);
    parser_.entry_buf = static_cast<unsigned char *>(buffer);
    parser_.entry_size = kFieldBufferSize;
    csv_set_realloc_func(&parser_, refuseLargerBuffer);
    csv_set_free_func(&parser_, codSysFree);
    csv_set_delim(&parser_, static_cast<unsigned char>(delimiter));
    csv_set_space_func(&parser_, isBlank);
    isInitialised_ = true;
    return COD_SUCCESS;
}

void CsvReader::fieldCallback(void *bytes, size_t size, void *reader) {
    static_cast<CsvReader *>(reader)->takeField(static_cast<char *>(bytes), size);
}

void CsvReader::rowCallback(int, void *reader) {
    static_cast<CsvReader *>(reader)->takeRow();
}

void CsvReader::takeField(char *bytes, size_t size) {
    if (COD_UNLIKELY(hasFailed_)) {
        return;
    }
    if (COD_UNLIKELY(size > kFieldLimit)) {
        hasFailed_ = raiseInField(kTooLong) != COD_SUCCESS;
        return;
    }
    hasFailed_ = sink_->onField({bytes, static_cast<CodUint32>(size), 0}) != COD_SUCCESS;
    fieldsOfRow_++;
}

void CsvReader::takeRow() {
    if (hasFailed_) {
        return;
    }
    hasFailed_ = sink_->onRow() != COD_SUCCESS;
    rows_++;
    fieldsOfRow_ = 0;
}

CodResult CsvReader::feed(const char *bytes, CodUint64 size) {
    if (isAtStart_) {
        COD_TRY(skipMark(&bytes, &size));
    }
    const auto *zero = size == 0 ? nullptr : static_cast<const char *>(memchr(bytes, '\0', size));
    if (zero == nullptr) {
        return parse(bytes, size);
    }
    COD_TRY(parse(bytes, static_cast<CodUint64>(zero - bytes)));
    return raiseInField("holds a zero byte");
}

CodResult CsvReader::skipMark(const char **bytes, CodUint64 *size) {
    while (*size > 0 && markBytes_ < sizeof(kMark) && **bytes == kMark[markBytes_]) {
        (*bytes)++;
        (*size)--;
        markBytes_++;
    }
    if (markBytes_ == sizeof(kMark)) {
        isAtStart_ = false;
        return COD_SUCCESS;
    }
    if (*size == 0) {
        return COD_SUCCESS;
    }
    isAtStart_ = false;
    return parse(kMark, markBytes_);
}

CodResult CsvReader::parse(const char *bytes, CodUint64 size) {
    const size_t parsed = csv_parse(&parser_, bytes, size, fieldCallback, rowCallback, this);
    if (hasFailed_) {
        return COD_ERROR;
    }
    return parsed == size ? COD_SUCCESS : raiseParserError();
}

CodResult CsvReader::finish() {
    if (isAtStart_) {
        isAtStart_ = false;
        if (markBytes_ < sizeof(kMark)) {
            COD_TRY(parse(kMark, markBytes_));
        }
    }
    const int result = csv_fini(&parser_, fieldCallback, rowCallback, this);
    if (hasFailed_) {
        return COD_ERROR;
    }
    return result == 0 ? COD_SUCCESS : raiseInField("has no closing quote");
}

CodResult CsvReader::raiseParserError() {
    return raiseInField(csv_error(&parser_) == CSV_ENOMEM ? kTooLong : "has a quote in the wrong place");
}

CodResult CsvReader::raiseInField(const char *what) const {
    char reason[128];
    snprintf(reason, sizeof(reason), "field %lu %s", fieldsOfRow_ + 1, what);
    return codRaise(ERR_CMM_PARSER_ERROR, name_, rows_ + 1, reason);
}

CodResult raiseFieldCount(const char *name, CodUint64 row, CodUint64 expected, CodUint64 found) {
    char reason[96];
    snprintf(reason, sizeof(reason), "expected %lu field%s, found %lu", expected, expected == 1 ? "" : "s", found);
    return codRaise(ERR_CMM_PARSER_ERROR, name, row, reason);
}

}  // namespace vel
