#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <vel_infra/error/ani_error_base.h>

#include "csv_reader.h"
#include "report.h"
#include "table_profile.h"
#include "work_memory.h"

// CSV through the reader, the profile and the report. The first byte chooses: bit 0 no header, bit 1 a tabulator between fields, bit 2
// room for few values so that columns are thinned out, bit 3 the first two columns only, the high half the size of the pieces.
// Pieces must make no difference: the input is read once in pieces and once whole, and the two results are compared.

namespace {

struct Result {
    char *text = nullptr;
    std::size_t size = 0;
};

CodResult feedAll(vel::CsvReader *reader, const char *bytes, std::size_t size, std::size_t piece) {
    for (std::size_t i = 0; i < size; i += piece) {
        COD_TRY(reader->feed(bytes + i, std::min(piece, size - i)));
    }
    return reader->finish();
}

CodResult profile(std::uint8_t choice, const char *bytes, std::size_t size, std::size_t piece, FILE *out) {
    vel::WorkMemory memory;
    COD_TRY(memory.init());
    vel::TableProfileOptions options = {};
    options.name = "input";
    options.hasHeader = (choice & 1) == 0;
    options.valuesPerColumn = (choice & 4) != 0 ? 3 : options.valuesPerColumn;
    options.columns = (choice & 8) != 0 ? "2,1" : nullptr;
    vel::TableProfile table(options);
    COD_TRY(table.init(memory.pool()));
    vel::CsvReader reader("input", &table);
    COD_TRY(reader.init((choice & 2) != 0 ? '\t' : ','));
    COD_TRY(feedAll(&reader, bytes, size, piece));
    COD_TRY(table.finish());
    writeReport(out, table, "input");
    return mpoolVerify(memory.pool());
}

Result run(std::uint8_t choice, const char *bytes, std::size_t size, std::size_t piece) {
    Result result;
    FILE *out = open_memstream(&result.text, &result.size);
    if (profile(choice, bytes, size, piece, out) != COD_SUCCESS) {
        if (codGetErrorStackDepth() == 0) {
            std::abort();
        }
        std::fputs(codGetErrorMsg2(), out);
        codCleanError();
    }
    std::fclose(out);
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const auto *bytes = reinterpret_cast<const char *>(data + 1);
    const Result pieces = run(data[0], bytes, size - 1, 1 + data[0] / 16);
    const Result whole = run(data[0], bytes, size - 1, size);
    if (pieces.size != whole.size || std::memcmp(pieces.text, whole.text, whole.size) != 0) {
        std::abort();
    }
    std::free(pieces.text);
    std::free(whole.text);
    return 0;
}
