#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>

#include <vel_infra/codepage/ani_codepage.h>
#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/string/ani_convert.h>

#include "codepage_folder.h"
#include "commands.h"
#include "input_file.h"
#include "output_file.h"
#include "printable.h"

namespace vel {

namespace {

constexpr CodUint32 kPieceSize = 65536;
constexpr CodUint32 kMostBytes = 4;  // of a character in any charset

// Converts what it is fed, in pieces; a character that a piece cuts off waits for the rest of it.
class Converter final : public PieceSink {
public:
    // output: null for standard output.
    Converter(const char *inputName, CodUint16 from, CodUint16 to, OutputFile *output)
        : inputName_(inputName), from_(from), to_(to), output_(output) {}

    CodResult feed(const char *bytes, CodUint64 size) override {
        while (size > 0) {
            const auto taken = static_cast<CodUint32>(std::min<CodUint64>(size, kPieceSize - waiting_));
            memcpy(piece_ + waiting_, bytes, taken);
            bytes += taken;
            size -= taken;
            COD_TRY(convertPiece(waiting_ + taken, false));
        }
        return COD_SUCCESS;
    }
    CodResult finish() override {
        return convertPiece(waiting_, true);
    }
    CodUint64 rows() const override {
        return read_;
    }
    CodUint64 written() const {
        return written_;
    }

private:
    // The first `size` bytes of the piece, of which the last ones stay when they may be the beginning of a character.
    CodResult convertPiece(CodUint32 size, bool isLast) {
        CodUint32 bad = 0;
        const CodUint32 whole = convert(size, &bad) ? size : bad;
        if (whole < size && !convert(whole, &bad)) {
            return COD_ERROR;
        }
        COD_TRY(write(converted_, convertedSize_));
        if (whole < size && (isLast || size - whole >= kMostBytes)) {
            return raiseBadCharacter(read_ + whole);
        }
        memmove(piece_, piece_ + whole, size - whole);
        waiting_ = size - whole;
        read_ += whole;
        return COD_SUCCESS;
    }
    // Into converted_. False: *bad tells where it ends.
    bool convert(CodUint32 size, CodUint32 *bad) {
        const CodText text = {piece_, size, 0};
        convertedSize_ = 0;
        if (codTextConvertStrict(&text, to_, converted_, sizeof(converted_), &convertedSize_, from_, COD_CONVERT_REFUSE, bad) ==
            COD_SUCCESS) {
            return true;
        }
        codCleanCurError();
        return false;
    }
    CodResult write(const char *bytes, CodUint64 size) {
        written_ += size;
        if (output_ != nullptr) {
            return output_->append(bytes, size);
        }
        // What is lost is told when standard output is finished.
        fwrite(bytes, 1, size, stdout);
        return COD_SUCCESS;
    }
    CodResult raiseBadCharacter(CodUint64 offset) const {
        codSetError(__FILE__, __LINE__, __func__, ERR_CMM_CONVERT_STRING,
                    "%s: %s, the bytes at offset %" PRIu64 " are no character of %s, or one that %s lacks", inputName_,
                    "string conversion failed", offset, codGetCharsetName(from_)->str, codGetCharsetName(to_)->str);
        return COD_ERROR;
    }

    const char *inputName_;
    CodUint16 from_;
    CodUint16 to_;
    OutputFile *output_;
    CodUint64 read_ = 0;  // bytes that were converted
    CodUint64 written_ = 0;
    CodUint32 waiting_ = 0;
    CodUint32 convertedSize_ = 0;
    char piece_[kPieceSize];
    char converted_[kMostBytes * kPieceSize + 2];  // no charset takes more for a byte of another
};

CodResult findCharset(const char *name, CodUint16 *charset) {
    const CodText text = {const_cast<CodChar *>(name), static_cast<CodUint32>(strlen(name)), 0};
    if (codGetCharsetIdByAlias(&text, charset) == COD_SUCCESS && *charset != BINARY_CS) {
        return COD_SUCCESS;
    }
    codCleanError();
    return codRaise(ERR_CMM_INVALID_CHARSET_NAME, PrintableName(name).str());
}

bool needsCodepage(CodUint16 charset) {
    return charset == GBK || charset == GB18030;
}

}  // namespace

CodResult runConvert(const ConvertCommand &command, WorkDone *done) {
    CodUint16 from = 0;
    CodUint16 to = 0;
    COD_TRY(findCharset(command.from, &from));
    COD_TRY(findCharset(command.to, &to));
    if (needsCodepage(from) || needsCodepage(to)) {
        COD_TRY(loadCodepages(nullptr));
    }
    InputFile input(command.file);
    COD_TRY(input.openForReading());
    OutputFile output(command.output != nullptr ? command.output : "");
    if (command.output != nullptr) {
        COD_TRY(output.create());
    }
    const auto converter = std::make_unique<Converter>(input.name(), from, to, command.output != nullptr ? &output : nullptr);
    COD_TRY(input.readAll(converter.get(), isatty(STDOUT_FILENO) == 1 && command.output == nullptr ? nullptr : "byte"));
    if (command.output != nullptr) {
        COD_TRY(output.finish());
    }
    *done = {converter->rows(), "byte"};
    return COD_SUCCESS;
}

}  // namespace vel
