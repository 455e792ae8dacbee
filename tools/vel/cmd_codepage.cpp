#include <iconv.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>

#include <vel_infra/codepage/ani_codepage.h>
#include <vel_infra/error/ani_error_base.h>

#include "codepage_folder.h"
#include "commands.h"
#include "printable.h"

namespace vel {

namespace {

constexpr char kUnicode[] = "UTF-32BE";
constexpr CodUint32 kUnicodeEnd = 0x110000;
constexpr CodUint64 kMostShown = 20;

// ---- Codes by iconv ----

// A conversion of single characters.
class Encoder {
public:
    Encoder(const char *to, const char *from) : handle_(iconv_open(to, from)) {}
    ~Encoder() {
        if (isOpen()) {
            iconv_close(handle_);
        }
    }
    Encoder(const Encoder &) = delete;
    Encoder &operator=(const Encoder &) = delete;

    bool isOpen() const {
        return handle_ != reinterpret_cast<iconv_t>(-1);
    }
    // The bytes of one character as a number, the first one highest. False when there is no such character.
    bool convert(CodUint32 character, CodUint32 size, CodUint32 *result) const {
        char in[4];
        char out[16];
        for (CodUint32 i = 0; i < size; i++) {
            in[i] = static_cast<char>(character >> 8 * (size - 1 - i));
        }
        char *inNext = in;
        char *outNext = out;
        size_t inLeft = size;
        size_t outLeft = sizeof(out);
        iconv(handle_, nullptr, nullptr, nullptr, nullptr);
        if (iconv(handle_, &inNext, &inLeft, &outNext, &outLeft) != 0 || inLeft != 0 || outNext == out || outNext > out + 4) {
            return false;
        }
        *result = 0;
        for (const char *byte = out; byte < outNext; byte++) {
            *result = *result << 8 | static_cast<CodUint8>(*byte);
        }
        return true;
    }

private:
    iconv_t handle_;
};

// ---- Pages ----

enum class CodeForm { kOneByte, kTwoBytes, kFourBytes, kCodePoints };

struct CharsetRow {
    const char *name;
    const char *encoding;
    CodepageId id;
    CodeForm form;
};

constexpr CharsetRow kCharsets[] = {
    {"iso88591", "ISO-8859-1", CODEPAGE_ISO88591, CodeForm::kOneByte},
    {"gbk", "GBK", CODEPAGE_GBK, CodeForm::kTwoBytes},
    {"ucs", kUnicode, CODEPAGE_UCS, CodeForm::kCodePoints},
    {"gb18030", "GB18030", CODEPAGE_GB18030, CodeForm::kFourBytes},
};

class Comparison {
public:
    explicit Comparison(const CharsetRow &row) : row_(row), toUnicode_(kUnicode, row.encoding), fromUnicode_(row.encoding, kUnicode) {}

    CodResult run() {
        if (!toUnicode_.isOpen() || !fromUnicode_.isOpen()) {
            return codRaise(ERR_CMM_CONVERT_STRING);
        }
        compareCodes();
        for (CodUint32 codePoint = 0; codePoint < kUnicodeEnd; codePoint++) {
            compare("U+", codePoint, 4, fromUnicode_, aniCodepageGetElementFromUni);
        }
        char compared[kCountSize];
        char disagreeing[kCountSize];
        printf("%-12s %12s compared, %s disagree\n", row_.name, formatCount(compared_, compared), formatCount(disagreeing_, disagreeing));
        return COD_SUCCESS;
    }
    CodUint64 compared() const {
        return compared_;
    }
    CodUint64 disagreeing() const {
        return disagreeing_;
    }

private:
    void compareCodes() {
        if (row_.form == CodeForm::kCodePoints) {
            compareCodes(0, kUnicodeEnd, 4);
            return;
        }
        compareCodes(0, 0x100, 1);
        if (row_.form != CodeForm::kOneByte) {
            compareCodes(0x8000, 0x10000, 2);
        }
        if (row_.form == CodeForm::kFourBytes) {
            compareFourBytes();
        }
    }
    void compareCodes(CodUint32 begin, CodUint32 end, CodUint32 size) {
        for (CodUint32 code = begin; code < end; code++) {
            compare("", code, size, toUnicode_, aniCodepageGetElementToUni);
        }
    }
    // 81 to FE, 30 to 39, and again.
    void compareFourBytes() {
        for (CodUint32 high = 0x8130; high <= 0xFE39; high += (high & 0xFF) == 0x39 ? 0xF7 : 1) {
            for (CodUint32 low = 0x8130; low <= 0xFE39; low += (low & 0xFF) == 0x39 ? 0xF7 : 1) {
                compareCodes(high << 16 | low, (high << 16 | low) + 1, 4);
            }
        }
    }
    void compare(const char *prefix, CodUint32 character, CodUint32 size, const Encoder &encoder,
                 CodUint32 (*lookUp)(CodUint32, CodUint32, CodBool *)) {
        CodBool isNull = true;
        CodUint32 expected = 0;
        const CodUint32 element = lookUp(row_.id, character, &isNull);
        const bool isThere = encoder.convert(character, size, &expected);
        compared_++;
        if (isThere != isNull && (isNull || element == expected)) {
            return;
        }
        if (disagreeing_++ < kMostShown) {
            printf("%s: %s%04" PRIX32 " is %s here, %s by iconv\n", row_.name, prefix, character, describe(!isNull, element).c_str(),
                   describe(isThere, expected).c_str());
        }
    }
    static std::string describe(bool isThere, CodUint32 element) {
        char text[16];
        snprintf(text, sizeof(text), "%04" PRIX32, element);
        return isThere ? text : "nothing";
    }

    const CharsetRow &row_;
    const Encoder toUnicode_;
    const Encoder fromUnicode_;
    CodUint64 compared_ = 0;
    CodUint64 disagreeing_ = 0;
};

void printWeights() {
    CodUint64 weights = 0;
    for (CodUint32 codePoint = 0; codePoint < kUnicodeEnd; codePoint++) {
        CodBool isNull = true;
        aniCodepageGetElementSort(CODEPAGE_PINYIN_SORT, codePoint, &isNull);
        weights += isNull ? 0 : 1;
    }
    char count[kCountSize];
    printf("%-12s %12s weights\n", "pinyin.sort", formatCount(weights, count));
}

CodResult verify(WorkDone *done) {
    CodUint64 compared = 0;
    CodUint64 disagreeing = 0;
    for (const CharsetRow &row : kCharsets) {
        Comparison comparison(row);
        COD_TRY(comparison.run());
        compared += comparison.compared();
        disagreeing += comparison.disagreeing();
    }
    printWeights();
    char codes[kCountSize];
    char wrong[kCountSize];
    printf("%-12s %12s compared, %s disagree\n", "all", formatCount(compared, codes), formatCount(disagreeing, wrong));
    *done = {compared, "code"};
    return disagreeing == 0 ? COD_SUCCESS : codRaise(ERR_CMM_INVALID_CODEPAGE);
}

}  // namespace

CodResult runCodepageVerify(const CodepageCommand &command, WorkDone *done) {
    CodResult result = loadCodepages(command.folder);
    if (result == COD_SUCCESS) {
        result = verify(done);
    }
    aniCodepageClose();
    return result;
}

}  // namespace vel
