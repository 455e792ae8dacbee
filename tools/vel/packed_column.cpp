#include "packed_column.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>

#include <vel_infra/bitops/ani_bitcolumn.h>
#include <vel_infra/error/ani_error_base.h>

namespace vel {

namespace {

constexpr char kMagic[4] = {'V', 'E', 'L', 'P'};
constexpr CodUint8 kVersion = 1;

enum Form : CodUint8 { kFrameOfReference = 1, kDelta = 2, kAllForms = 3 };

// In the header of a packed column.
constexpr CodUint32 kWidthOffset = 8;
constexpr CodUint32 kFormOffset = 9;

constexpr CodUint32 kSizeBytes = 4;
constexpr CodUint32 kLargestColumn = COD_BITCOLUMN_HEADER_SIZE + kPackedChunk * sizeof(CodUint32);
static_assert(kLargestColumn >= kPackedNameLimit);

// Of the text; the longest line with its line feed.
constexpr CodUint32 kLinesAtOnce = 1024;
constexpr CodUint32 kLongestLine = sizeof("4294967295");

// As it is written: its size in front.
struct Chunk {
    CodUint32 size;
    CodUint8 column[kLargestColumn];

    CodUint64 bytes() const {
        return kSizeBytes + CodUint64{size};
    }
};
static_assert(offsetof(Chunk, column) == kSizeBytes);

struct PackerMemory {
    CodUint32 values[kPackedChunk];
    Chunk fromMinimum;
    Chunk steps;
};

struct UnpackerMemory {
    CodUint32 values[kPackedChunk];
    CodUint8 part[kLargestColumn];
};

// Whether the name of a column that stands alone in a CSV file has to be quoted there. An empty line would be no row, and a byte-order mark
// would be passed over.
bool needsQuotes(const char *name, CodUint32 size) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    return size == 0 || std::string_view(name, size).starts_with(kByteOrderMark) ||
           std::any_of(name, name + size, [](char c) { return c == '"' || c == ',' || c == '\n' || c == '\r'; });
}

}  // namespace

CodResult ColumnPacker::init() {
    COD_TRY(memory_.init(sizeof(PackerMemory)));
    values_ = memory_.as<PackerMemory>()->values;
    return COD_SUCCESS;
}

CodResult ColumnPacker::begin(const CodText &name) {
    memcpy(head_.magic, kMagic, sizeof(kMagic));
    head_.version = kVersion;
    head_.nameSize = static_cast<CodUint16>(name.len);
    COD_TRY(file_->append(&head_, sizeof(head_)));
    return file_->append(name.str, name.len);
}

CodResult ColumnPacker::writeChunk() {
    auto *memory = memory_.as<PackerMemory>();
    Chunk *smallest = &memory->fromMinimum;
    COD_TRY(codForEncode32(values_, waiting_, smallest->column, kLargestColumn, &smallest->size));
    if (std::is_sorted(values_, values_ + waiting_)) {
        Chunk *steps = &memory->steps;
        COD_TRY(codDeltaEncode32(values_, waiting_, steps->column, kLargestColumn, &steps->size));
        smallest = steps->size < smallest->size ? steps : smallest;
    }
    COD_TRY(file_->append(smallest, smallest->bytes()));
    head_.forms |= smallest->column[kFormOffset];
    head_.count += waiting_;
    waiting_ = 0;
    return COD_SUCCESS;
}

// Only now are count and forms known.
CodResult ColumnPacker::finish() {
    if (waiting_ > 0) {
        COD_TRY(writeChunk());
    }
    return file_->overwrite(&head_, sizeof(head_));
}

CodResult ColumnUnpacker::init() {
    COD_TRY(memory_.init(sizeof(UnpackerMemory)));
    values_ = memory_.as<UnpackerMemory>()->values;
    bytes_ = memory_.as<UnpackerMemory>()->part;
    return COD_SUCCESS;
}

CodResult ColumnUnpacker::feed(const char *bytes, CodUint64 size) {
    while (size > 0) {
        if (part_ == kEnd) {
            return raiseInvalid("there are bytes behind the last value");
        }
        const auto taken = static_cast<CodUint32>(std::min<CodUint64>(size, expected_ - arrived_));
        memcpy(bytes_ + arrived_, bytes, taken);
        arrived_ += taken;
        bytes += taken;
        size -= taken;
        while (arrived_ == expected_ && part_ != kEnd) {
            COD_TRY(takePart());
        }
    }
    return COD_SUCCESS;
}

CodResult ColumnUnpacker::finish() {
    if (part_ == kHead) {
        return raiseInvalid("it is no packed column");
    }
    return part_ == kEnd ? COD_SUCCESS : raiseInChunk("the file ends");
}

void ColumnUnpacker::expect(Part part, CodUint32 size) {
    part_ = part;
    expected_ = size;
    arrived_ = 0;
}

CodResult ColumnUnpacker::expectChunk() {
    if (count_ < head_.count) {
        expect(kChunkSize, kSizeBytes);
        return COD_SUCCESS;
    }
    expect(kEnd, 0);
    return forms_ == head_.forms ? COD_SUCCESS : raiseInvalid("the forms of the chunks are not those of the head");
}

CodResult ColumnUnpacker::takePart() {
    switch (part_) {
        case kHead:
            return takeHead();
        case kName:
            return takeName();
        case kChunkSize:
            return takeChunkSize();
        default:
            return takeChunk();
    }
}

CodResult ColumnUnpacker::takeHead() {
    memcpy(&head_, bytes_, sizeof(head_));
    if (memcmp(head_.magic, kMagic, sizeof(kMagic)) != 0) {
        return raiseInvalid("it is no packed column");
    }
    if (head_.version != kVersion) {
        char reason[64];
        snprintf(reason, sizeof(reason), "its version is %u, not %u", head_.version, kVersion);
        return raiseInvalid(reason);
    }
    if (head_.nameSize > kPackedNameLimit || head_.forms > kAllForms || (head_.forms == 0) != (head_.count == 0)) {
        return raiseInvalid("its head is damaged");
    }
    expect(kName, head_.nameSize);
    return COD_SUCCESS;
}

CodResult ColumnUnpacker::takeName() {
    const auto *name = reinterpret_cast<const char *>(bytes_);
    if (memchr(name, '\0', head_.nameSize) != nullptr) {
        return raiseInvalid("its name holds a zero byte");
    }
    const bool isQuoted = needsQuotes(name, head_.nameSize);
    char line[2 * kPackedNameLimit + 3];
    size_t length = 0;
    for (CodUint32 i = 0; i < head_.nameSize; i++) {
        if (name[i] == '"') {
            line[++length] = '"';
        }
        line[++length] = name[i];
    }
    line[0] = '"';
    line[length + 1] = isQuoted ? '"' : '\n';
    line[length + 2] = '\n';
    COD_TRY(isQuoted ? write(line, length + 3) : write(line + 1, length + 1));
    return expectChunk();
}

CodResult ColumnUnpacker::takeChunkSize() {
    CodUint32 size = 0;
    memcpy(&size, bytes_, sizeof(size));
    if (size < COD_BITCOLUMN_HEADER_SIZE || size > kLargestColumn) {
        return raiseInChunk("there is no chunk");
    }
    expect(kChunk, size);
    return COD_SUCCESS;
}

bool ColumnUnpacker::decodeChunk(CodUint32 *count) {
    const CodUint8 form = bytes_[kFormOffset];
    const auto decode = form == kDelta ? codDeltaDecode32 : codForDecode32;
    if (decode(bytes_, expected_, values_, kPackedChunk, count) != COD_SUCCESS) {
        codCleanCurError();
        return false;
    }
    return (form & head_.forms) != 0 && *count > 0 && *count <= head_.count - count_ &&
           expected_ == codBitColumnSize(*count, bytes_[kWidthOffset]);
}

CodResult ColumnUnpacker::takeChunk() {
    CodUint32 count = 0;
    if (!decodeChunk(&count)) {
        return raiseInChunk("there is no chunk");
    }
    forms_ |= bytes_[kFormOffset];
    COD_TRY(writeValues(count));
    count_ += count;
    return expectChunk();
}

CodResult ColumnUnpacker::writeValues(CodUint32 count) {
    char text[kLinesAtOnce * kLongestLine];
    for (CodUint32 i = 0; i < count;) {
        char *end = text;
        for (const CodUint32 batchEnd = std::min(i + kLinesAtOnce, count); i < batchEnd; i++) {
            end = std::to_chars(end, end + kLongestLine, values_[i]).ptr;
            *end++ = '\n';
        }
        COD_TRY(write(text, static_cast<size_t>(end - text)));
    }
    return COD_SUCCESS;
}

CodResult ColumnUnpacker::write(const char *text, size_t size) {
    return fwrite(text, 1, size, out_) == size ? COD_SUCCESS : raiseWriteError("standard output");
}

CodResult ColumnUnpacker::raiseInvalid(const char *reason) const {
    return codRaise(ERR_CMM_INVALID_FILE, name_, reason);
}

CodResult ColumnUnpacker::raiseInChunk(const char *what) const {
    char written[kCountSize];
    char promised[kCountSize];
    char reason[2 * kCountSize + 64];
    snprintf(reason, sizeof(reason), "%s behind %s of %s values", what, formatCount(count_, written), formatCount(head_.count, promised));
    return raiseInvalid(reason);
}

}  // namespace vel
