#ifndef VEL_PACKED_COLUMN_H
#define VEL_PACKED_COLUMN_H

#include <stdio.h>

#include "input_file.h"
#include "output_file.h"
#include "work_memory.h"

namespace vel {

// A packed file is a head, the name of the column, and chunks of the column; each chunk is its size in four bytes and as many bytes of
// bitops/ani_bitcolumn.h. Persisted, little-endian; docs/vel.md tells more.
struct PackedHead {
    char magic[4];       // "VELP"
    CodUint8 version;    // 1
    CodUint8 forms;      // of the chunks: bit 0 frame of reference, bit 1 delta
    CodUint16 nameSize;  // bytes, at most kPackedNameLimit
    CodUint64 count;     // values
};
static_assert(sizeof(PackedHead) == 16);

constexpr CodUint32 kPackedNameLimit = 1024;
constexpr CodUint32 kPackedChunk = 65536;  // values of a chunk, at most

// Writes a column into a packed file, value by value, in flat memory.
class ColumnPacker {
public:
    // The file must outlive the packer.
    explicit ColumnPacker(OutputFile *file) : file_(file) {}
    ColumnPacker(const ColumnPacker &) = delete;
    ColumnPacker &operator=(const ColumnPacker &) = delete;

    // Errors of all: those of OutputFile; init: those of codSysAlloc.
    CodResult init();
    // Once, before the first value; name has at most kPackedNameLimit bytes.
    CodResult begin(const CodText &name);
    CodResult add(CodUint32 value) {
        values_[waiting_++] = value;
        return waiting_ == kPackedChunk ? writeChunk() : COD_SUCCESS;
    }
    CodResult finish();

    // Before finish the values of whole chunks alone.
    CodUint64 count() const {
        return head_.count;
    }

private:
    CodResult writeChunk();

    OutputFile *file_;
    PackedHead head_ = {};
    SystemBuffer memory_;
    CodUint32 *values_ = nullptr;
    CodUint32 waiting_ = 0;
};

// Writes the column of a packed file as text: a line with its name, quoted as CSV where need be, and a line for each value. The bytes
// come from outside; nothing of a chunk is written before all of it has been found good.
//
// Errors: ERR_CMM_INVALID_FILE with the reason for bytes that are no packed file; ERR_CMM_FILE_OPER when standard output takes no more.
class ColumnUnpacker final : public PieceSink {
public:
    // name, for messages, and out, which is standard output, must outlive the unpacker.
    ColumnUnpacker(const char *name, FILE *out) : name_(name), out_(out) {}
    ColumnUnpacker(const ColumnUnpacker &) = delete;
    ColumnUnpacker &operator=(const ColumnUnpacker &) = delete;

    // Errors: those of codSysAlloc.
    CodResult init();
    CodResult feed(const char *bytes, CodUint64 size) override;
    CodResult finish() override;
    CodUint64 rows() const override {
        return count_;
    }

private:
    enum Part { kHead, kName, kChunkSize, kChunk, kEnd };

    void expect(Part part, CodUint32 size);
    CodResult expectChunk();
    CodResult takePart();
    CodResult takeHead();
    CodResult takeName();
    CodResult takeChunkSize();
    CodResult takeChunk();
    bool decodeChunk(CodUint32 *count);
    CodResult writeValues(CodUint32 count);
    CodResult write(const char *text, size_t size);
    CodResult raiseInvalid(const char *reason) const;
    CodResult raiseInChunk(const char *what) const;

    const char *name_;
    FILE *out_;
    SystemBuffer memory_;
    CodUint8 *bytes_ = nullptr;    // the part, as far as it has arrived
    CodUint32 *values_ = nullptr;  // of a chunk
    Part part_ = kHead;
    CodUint32 expected_ = sizeof(PackedHead);  // bytes of the part
    CodUint32 arrived_ = 0;
    PackedHead head_ = {};
    CodUint8 forms_ = 0;   // met
    CodUint64 count_ = 0;  // values written
};

}  // namespace vel

#endif
