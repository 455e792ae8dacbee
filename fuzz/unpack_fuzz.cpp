#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <vel_infra/error/ani_error_base.h>

#include "packed_column.h"

// Packed files, in pieces of three bytes and as a whole: pieces must make no difference. Few bytes promise many values, so files are short.

static CodResult unpack(const char *bytes, size_t size, size_t piece, FILE *out) {
    vel::ColumnUnpacker unpacker("input", out);
    COD_TRY(unpacker.init());
    for (size_t i = 0; i < size; i += piece) {
        COD_TRY(unpacker.feed(bytes + i, std::min(piece, size - i)));
    }
    return unpacker.finish();
}

static std::string run(const char *bytes, size_t size, size_t piece) {
    char *text = nullptr;
    size_t length = 0;
    FILE *out = open_memstream(&text, &length);
    const CodResult result = unpack(bytes, size, piece, out);
    fclose(out);
    std::string seen(text, length);
    free(text);
    if (result != COD_SUCCESS) {
        seen += codGetErrorStackDepth() > 0 ? codGetErrorMsg2() : "no reason";
        codCleanError();
    }
    return seen;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, size_t size) {
    const auto *bytes = reinterpret_cast<const char *>(data);
    const std::string whole = run(bytes, std::min<size_t>(size, 512), 512);
    if (whole.ends_with("no reason") || whole != run(bytes, std::min<size_t>(size, 512), 3)) {
        abort();
    }
    return 0;
}
