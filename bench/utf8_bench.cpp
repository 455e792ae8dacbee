// Validation of UTF-8: texts of 64 KiB, and strings of 32 bytes, 2,048 of them one after the other. Mixed texts have as many characters of
// one, two, three and four bytes, in random order.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <random>
#include <string>

#include <vel_infra/velon/ani_velon_util.h>

#include "base/cod_utf8.h"

#ifdef VEL_INFRA_WITH_SIMDJSON
#include <simdjson.h>
#endif
#ifdef VEL_INFRA_WITH_ICU
#include <unicode/ustring.h>
#endif

namespace {

constexpr size_t kTextSize = 64 << 10;
constexpr size_t kStringSize = 32;

// A character of this many bytes: a letter, a Greek or Cyrillic one, a Chinese one, an emoji.
std::string randomCharacter(std::mt19937 &random, unsigned bytes) {
    constexpr unsigned first[] = {0, 'A', 0x390, 0x4E00, 0x1F300};
    constexpr unsigned count[] = {0, 58, 0xC0, 20000, 0x300};
    constexpr unsigned leads[] = {0, 0, 0xC0, 0xE0, 0xF0};
    unsigned code = first[bytes] + static_cast<unsigned>(random()) % count[bytes];
    std::string character;
    for (unsigned i = 1; i < bytes; i++, code >>= 6) {
        character.insert(character.begin(), static_cast<char>(0x80 | (code & 0x3F)));
    }
    character.insert(character.begin(), static_cast<char>(leads[bytes] | code));
    return character;
}

// Characters of minBytes to maxBytes. Every `size` bytes are whole characters, the last ones of which may be letters.
std::string makeText(unsigned minBytes, unsigned maxBytes, size_t size) {
    std::mt19937 random(maxBytes);
    std::string text;
    while (text.size() < kTextSize) {
        const size_t left = size - text.size() % size;
        const unsigned bytes = minBytes + static_cast<unsigned>(random()) % (maxBytes - minBytes + 1);
        text += randomCharacter(random, bytes <= left ? bytes : 1);
    }
    return text;
}

// bool isValid(text, length), for every `size` bytes.
void add(const std::string &name, const std::string &text, size_t size, cod::Utf8Variant variant, auto isValid) {
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State &state) {
        cod::setUtf8Variant(variant);
        for (auto _ : state) {
            for (size_t at = 0; at < kTextSize; at += size) {
                if (!isValid(text.data() + at, static_cast<CodUint32>(size))) {
                    abort();
                }
            }
        }
        state.counters["ns_per_item"] = benchmark::Counter(static_cast<double>(kTextSize / size) * 1e-9,
                                                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    });
}

bool isValidByUs(const char *text, CodUint32 length) {
    return velonCheckValidUTF8(reinterpret_cast<const CodUint8 *>(text), length) == COD_SUCCESS;
}

// Over the static library, where a variant can be forced.
bool isValidByVariant(const char *text, CodUint32 length) {
    return cod::isValidUtf8(reinterpret_cast<const CodUint8 *>(text), length);
}

#ifdef VEL_INFRA_WITH_ICU
bool isValidByIcu(const char *text, CodUint32 length) {
    static UChar converted[kTextSize];
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8(converted, kTextSize, nullptr, text, static_cast<int32_t>(length), &status);
    benchmark::DoNotOptimize(converted);
    return U_SUCCESS(status) != 0;
}
#endif

void addRows(const std::string &work, const std::string &text, size_t size) {
    const cod::Utf8Variant best = cod::detectUtf8Variant();
    add(work + "/ours", text, size, best, isValidByUs);
    add(work + ", scalar/ours", text, size, cod::kUtf8Scalar, isValidByVariant);
    if (best > cod::kUtf8Simd256) {
        add(work + ", 256-bit/ours", text, size, cod::kUtf8Simd256, isValidByVariant);
    }
#ifdef VEL_INFRA_WITH_SIMDJSON
    add(work + "/peer: simdjson::validate_utf8", text, size, best,
        [](const char *data, CodUint32 length) { return simdjson::validate_utf8(data, length); });
#endif
#ifdef VEL_INFRA_WITH_ICU
    add(work + "/peer: u_strFromUTF8 (converts)", text, size, best, isValidByIcu);
#endif
}

[[maybe_unused]] const bool gRegistered = [] {
    struct Kind {
        const char *name;
        unsigned minBytes;
        unsigned maxBytes;
    };
    for (const Kind &kind : {Kind{"ASCII", 1, 1}, Kind{"Chinese", 3, 3}, Kind{"mixed", 1, 4}}) {
        const std::string work = std::string("UTF-8, ") + kind.name;
        addRows(work + ", 64 KiB", makeText(kind.minBytes, kind.maxBytes, kTextSize), kTextSize);
        addRows(work + ", 32 bytes", makeText(kind.minBytes, kind.maxBytes, kStringSize), kStringSize);
    }
    return true;
}();

}  // namespace
