// Conversion of texts between charsets: 64 KiB, and strings of 32 bytes, 2,048 of them one after the other. Chinese texts are of three-byte
// characters, mixed ones half of letters.

#include <benchmark/benchmark.h>
#include <iconv.h>
#include <stdlib.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include <vel_infra/vel_infra.h>

#ifdef VEL_INFRA_WITH_ICU
#include <unicode/ucnv.h>
#include <unicode/ustring.h>
#endif
namespace {

constexpr size_t kTextSize = 64 << 10;
constexpr size_t kStringSize = 32;

void check(bool right) {
    if (!right) {
        abort();
    }
}

// Every `size` bytes are whole characters, all of which every charset here has.
std::string makeText(unsigned letterOneIn, size_t size) {
    std::mt19937 random(letterOneIn);
    std::string text;
    while (text.size() < kTextSize) {
        const size_t left = size - text.size() % size;
        if (left < 3 || (letterOneIn != 0 && random() % letterOneIn == 0)) {
            text += static_cast<char>('a' + random() % 26);
            continue;
        }
        const unsigned code = 0x4E00 + static_cast<unsigned>(random()) % 5000;
        text +=
            {static_cast<char>(0xE0 | code >> 12), static_cast<char>(0x80 | (code >> 6 & 0x3F)), static_cast<char>(0x80 | (code & 0x3F))};
    }
    return text;
}

std::string makeUtf16Text(unsigned letterOneIn) {
    std::mt19937 random(letterOneIn);
    std::string text;
    while (text.size() < kTextSize) {
        const bool isLetter = letterOneIn != 0 && random() % letterOneIn == 0;
        const unsigned unit = isLetter ? 'a' + static_cast<unsigned>(random()) % 26 : 0x4E00 + static_cast<unsigned>(random()) % 5000;
        text += {static_cast<char>(unit), static_cast<char>(unit >> 8)};
    }
    return text;
}

struct Work {
    std::string text;
    size_t size;
    CodUint16 from;
    CodUint16 to;
};

// CodUint32 convert(text of work.size bytes, buffer, room): the bytes written.
void add(const std::string &name, const Work &work, auto convert) {
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State &state) {
        std::vector<char> buffer(2 * work.size + 16);
        const auto room = static_cast<CodUint32>(buffer.size());
        for (auto _ : state) {
            for (size_t at = 0; at < work.text.size(); at += work.size) {
                const CodText text = {const_cast<char *>(work.text.data()) + at, static_cast<CodUint32>(work.size), 0};
                check(convert(text, buffer.data(), room) > 0);
            }
            benchmark::ClobberMemory();
        }
        state.counters["ns_per_item"] = benchmark::Counter(static_cast<double>(work.text.size() / work.size) * 1e-9,
                                                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    });
}

CodUint32 convertByIconv(iconv_t handle, const CodText &text, char *buffer, CodUint32 room) {
    char *in = text.str;
    char *out = buffer;
    size_t inLeft = text.len;
    size_t outLeft = room;
    check(iconv(handle, &in, &inLeft, &out, &outLeft) == 0);
    return static_cast<CodUint32>(out - buffer);
}

#ifdef VEL_INFRA_WITH_ICU
const char *icuName(CodUint16 charset) {
    return charset == UTF16 ? "UTF-16LE" : codGetCharsetSrcName(charset);
}
#endif

void addRows(const std::string &name, const Work &work) {
    const CodUint16 from = work.from;
    const CodUint16 to = work.to;
    add(name + ", strict/ours", work, [from, to](const CodText &text, char *buffer, CodUint32 room) {
        CodUint32 len = 0;
        check(codTextConvertStrict(&text, to, buffer, room, &len, from, COD_CONVERT_REFUSE, nullptr) == COD_SUCCESS);
        return len;
    });
    const std::shared_ptr<void> handle(iconv_open(codGetCharsetSrcName(to), codGetCharsetSrcName(from)),
                                       [](void *opened) { iconv_close(opened); });
    add(name + ", strict/peer: iconv, handle kept", work,
        [handle](const CodText &text, char *buffer, CodUint32 room) { return convertByIconv(handle.get(), text, buffer, room); });
#ifdef VEL_INFRA_WITH_ICU
    UErrorCode status = U_ZERO_ERROR;
    const std::shared_ptr<UConverter> target(ucnv_open(icuName(to), &status), ucnv_close);
    const std::shared_ptr<UConverter> source(ucnv_open(icuName(from), &status), ucnv_close);
    check(U_SUCCESS(status));
    add(name + ", strict/peer: ICU, converters kept", work, [source, target](const CodText &text, char *buffer, CodUint32 room) {
        static UChar pivot[4096];
        UErrorCode result = U_ZERO_ERROR;
        UChar *pivotIn = pivot;
        UChar *pivotOut = pivot;
        char *out = buffer;
        const char *in = text.str;
        ucnv_convertEx(target.get(), source.get(), &out, buffer + room, &in, text.str + text.len, pivot, &pivotIn, &pivotOut, pivot + 4096,
                       true, true, &result);
        check(U_SUCCESS(result));
        return static_cast<CodUint32>(out - buffer);
    });
#endif
    if (work.size == kStringSize) {
        add(name + "/ours", work, [to](const CodText &text, char *buffer, CodUint32 room) {
            CodUint32 len = 0;
            check(codTextConvert(&text, to, buffer, room, &len, UTF8) == COD_SUCCESS);
            return len;
        });
        add(name + "/peer: iconv, opened and closed", work, [to](const CodText &text, char *buffer, CodUint32 room) {
            const iconv_t opened = iconv_open(codGetCharsetDstName(to), "UTF-8");
            const CodUint32 len = convertByIconv(opened, text, buffer, room);
            iconv_close(opened);
            return len;
        });
    }
}

[[maybe_unused]] const bool gRegistered = [] {
    check(aniCodepageInitFrom(CODEPAGE_FOLDER) == COD_SUCCESS);
    struct Kind {
        const char *name;
        unsigned letterOneIn;
    };
    for (const Kind &kind : {Kind{"ASCII", 1}, Kind{"Chinese", 0}, Kind{"mixed", 2}}) {
        for (const CodUint16 to : {CodUint16{GBK}, CodUint16{GB18030}, CodUint16{UTF16}}) {
            const std::string name = std::string("UTF-8 to ") + codGetCharsetName(to)->str + ", " + kind.name;
            addRows(name + ", 64 KiB", {makeText(kind.letterOneIn, kTextSize), kTextSize, UTF8, to});
            if (to == GBK) {
                addRows(name + ", 32 bytes", {makeText(kind.letterOneIn, kStringSize), kStringSize, UTF8, to});
            }
        }
        addRows(std::string("UTF16 to UTF-8, ") + kind.name + ", 64 KiB", {makeUtf16Text(kind.letterOneIn), kTextSize, UTF16, UTF8});
    }
    return true;
}();

}  // namespace
