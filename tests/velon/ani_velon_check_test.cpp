#include "support/collection_support.h"
#include "velon/velon_walk.h"

namespace {

using namespace velon_model;
using namespace std::string_literals;
using collection_support::expectError;

constexpr auto string = [](const Bytes &bytes) { return Value{VELON_TYPE_STRING, bytes}; };
constexpr auto date = [](int type, CodInt64 value) { return Value{static_cast<VelonType>(type), raw(value)}; };
// Encoded, with these bytes over those at pos.
constexpr auto with = [](const Value &v, std::size_t pos, const Bytes &over) { return encode(v).replace(pos, over.size(), over); };

// Validation of a copy that ends with the last byte.
CodResult check(const Bytes &bytes) {
    const std::vector<CodUint8> exact(bytes.begin(), bytes.end());
    const VelonData data = velonDataNew(exact.data(), static_cast<CodUint32>(exact.size()), 0);
    const Velon velon = velonNew(nullptr, &data);
    return velonCheckData(&velon);
}

Value nested(int levels, const Value &v) {
    return levels == 0 ? v : levels % 2 == 0 ? arrayOf({nested(levels - 1, v)}) : objectOf({"k"}, {nested(levels - 1, v)});
}

const Value kNull, kTiny = {VELON_TYPE_TINYINT, "\1"}, kPair = objectOf({"a", "b"}, {kNull, kNull}), kAbc = string("abc");
const Value kOne = objectOf({"k"}, {kTiny}), kLists = arrayOf({arrayOf({kAbc}), string("abcdefghi")});

// Documents that are refused with the same error.
struct Refused {
    CodError code;
    Bytes message;
    std::vector<Bytes> documents;
};
const Refused kRefused[] = {
    {702, "", {"", "\x0d\x80"}},
    {701, "invalid velon type value: 0", {"\0"s, with(arrayOf({kAbc}), 12, "\0"s), with(kOne, 14, "\0"s)}},
    {701, "invalid velon type value: 17", {"\x11", with(arrayOf({kTiny}), 7, "\x11"), with(kOne, 14, "\x11")}},
    {701, "", {with(arrayOf({kAbc}), 7, "\x0d")}},  // the entry's type is not the value's
    {714, "velon data length 9 mismatch the actual data length 10", {"\x0a" + Bytes(9, '\0')}},
    {714, "velon data length 9 mismatch the actual data length 8", {"\x0e" + Bytes(7, '\0')}},
    {714, "velon data length 1 mismatch the actual data length 2", {"\6\6"}},
    {714, "velon data length 2 mismatch the actual data length 1", {"\5"}},
    {714, "velon data length 7 mismatch the actual data length 5", {"\3\5abc"}},
    {714, "velon data length 3 mismatch the actual data length 4", {"\x0d\1ab", "\4\1\1\1"}},
    {714, "velon data length 12 mismatch the actual data length 13", {encode(arrayOf({kTiny})) + "\0"s}},
    {714, "velon data length 23 mismatch the actual data length 22", {encode(kPair).substr(0, 22)}},
    {707, "invalid varint in velon", {"\3\xff\xff\xff\xff\1", with(objectOf({"k"}, {string("abcdef")}), 15, "\x80\x80\x80\x80")}},
    {717, "invalid velon number data", {"\4\x15" + Bytes(21, '\0'), with(arrayOf({string(Bytes(21, 'x'))}), 7, "\4\7\0\0\0\4\x15"s)}},
    {ERR_CMM_BYTES_ERROR, "", {"\4\0"s, "\4\x13" + Bytes(19, '\0')}},
    {718,
     "invalid velon string data",
     {encode(string("\xed\xa0\x80")), encode(objectOf({"k"}, {string("a\xc3")})), encode(string("\xc0\x80")),
      encode(arrayOf({string("\xf4\x90\x80\x80")}))}},
    {716,
     "invalid velon date/time data",
     {encode(date(14, -62135596800000001)), encode(date(14, 253402300800000000)), encode(arrayOf({date(15, -62135596800000001)})),
      encode(objectOf({""}, {date(15, 253402300800000000)})), encode(date(16, -1)), encode(date(16, 86400000000))}},
    // Equal, the greater first, the longer first, and in an object within.
    {719,
     "unordered or duplicated velon object keys",
     {encode(objectOf({"k", "k"}, {kNull, kNull})), encode(objectOf({"k", "k", "j", "k", "k"}, {kNull, kNull, kNull, kTiny, kNull})),
      with(kPair, 7, little(14, 4) + little(10, 4)), with(objectOf({"bb", "a"}, {kNull, kNull}), 7, little(10, 4) + little(15, 4)),
      encode(arrayOf({objectOf({"k", "x", "k"}, {kNull, kNull, kNull})}))}},
    // A key record behind the end; offsets that lead back to the container when they wrap; a value behind the end; a key up to the end and
    // over.
    {702,
     "",
     {with(kOne, 7, little(0x7fffffff, 4)), with(kLists, 8, little(0xfffffffb, 4)), with(kOne, 7, little(0xfffffffe, 4)),
      with(arrayOf({kAbc}), 8, little(12, 4)), with(kOne, 11, "\3"), with(kOne, 11, "\5")}},
    // A container that cuts its value, a value and a container and a table that reach beyond their container.
    {702,
     "",
     {with(kLists, 18, little(11, 4)), with(kLists, 30, "\4"), with(arrayOf({arrayOf({}), kTiny}), 18, "\3"),
      with(arrayOf({arrayOf({}), kAbc}), 22, "\1")}},
    {710, "nesting too deeply", {encode(nested(102, kNull)), encode(nested(101, arrayOf({})))}},
};

TEST(VelonCheck, refuses) {
    for (const auto &[code, message, documents] : kRefused) {
        for (const Bytes &bytes : documents) {
            SCOPED_TRACE(testing::PrintToString(bytes.substr(0, 60)));
            expectError(code, message, [&, &b = bytes] { return check(b); });
            EXPECT_THROW(Decoder(bytes).document(), CodError);
            Walker walker(1000);
            walker.walk(bytes);
            EXPECT_TRUE(walker.faults.empty()) << testing::PrintToString(walker.faults);
        }
    }
}

TEST(VelonCheck, accepts) {
    // Bytes that a type does not use are not looked at; any byte of a bool but 0 is true; a container may have slack.
    const Bytes rows[] = {encode(nested(101, kNull)),
                          encode(nested(100, objectOf({}, {}))),
                          encode(date(14, -62135596800000000)),
                          encode(date(14, 253402300799999999)),
                          encode(date(15, 253402300799999999)),
                          encode(date(16, 86399999999)),
                          encode(string("\xf4\x8f\xbf\xbf\xed\x9f\xbf\xee\x80\x80"s + '\0')),
                          encode(objectOf({"\xff\xff", "", "\x80"}, {kNull, kNull, kNull})),
                          "\5\x80",
                          "\2\x0c\0\0\0\2\0\6\1\2\3\4\7\1\2\3\4"s,
                          "\2\4\0\0\0\0\0??"s,
                          encode(arrayOf(std::vector<Value>(65535, kAbc)))};
    for (const Bytes &bytes : rows) {
        EXPECT_EQ(check(bytes), COD_SUCCESS) << codGetErrorMsg2() << testing::PrintToString(bytes.substr(0, 40));
    }
    const VelonData data = velonDataNew(reinterpret_cast<const CodUint8 *>("\6 and others"), 12, 0);
    VelonLazyValue lazy;
    ASSERT_EQ(velonDataReadLazyValue(&data, 0, &lazy), COD_SUCCESS);
    ASSERT_TRUE(velonLazyValueCheck(&lazy, 0) == COD_SUCCESS && velonLazyValueCheck(&lazy, 100) == COD_SUCCESS);
    expectError(710, "nesting too deeply", [&] { return velonLazyValueCheck(&lazy, 101); });
    expectError(710, "nesting too deeply", [&] { return velonLazyValueCheck(&lazy, 255); });
}

// Arrays whose entries all lead to one value, the next such array: few bytes and many paths.
Bytes shared(std::size_t width, int depth, const Bytes &last) {
    const Bytes inner = depth == 0 ? last : shared(width, depth - 1, last);
    Bytes entries;
    for (std::size_t i = 0; i < width; i++) {
        entries += inner[0] + little(2 + 5 * width, 4);
    }
    return "\2" + little(2 + entries.size() + inner.size(), 4) + little(width, 2) + entries + inner;
}

TEST(VelonCheck, boundsItsWork) {
    const Bytes empty = encode(arrayOf({})), longText = encode(string(Bytes(100000, 'x')));
    EXPECT_EQ(check(shared(2, 3, empty)), COD_SUCCESS);
    for (const Bytes &bytes : {shared(2, 60, empty), shared(60, 60, empty), shared(60000, 3, empty), shared(1000, 0, longText)}) {
        expectError(710, "nesting too deeply", [&] { return check(bytes); });
    }
}

// ---- Hostile bytes: readers agree with one another, validation with the model ----

void readsSafely(const Bytes &bytes) {
    Walker walker(1000);
    const Value seen = walker.walk(bytes);
    bool isValid = true;
    try {
        isValid = Decoder(bytes).document() == seen || !walker.accepted;
    } catch (CodError) {
        isValid = false;
    }
    ASSERT_TRUE(walker.faults.empty() && walker.accepted == isValid)
        << testing::PrintToString(walker.faults) << testing::PrintToString(bytes);
}

TEST(VelonCheck, everyTruncationAndEveryChangeOfAByte) {
    Trees trees;
    std::vector<Value> leaves, documents = {kAbc, date(16, 86399999999), nested(8, kNull), arrayOf({kLists, objectOf({}, {}), kOne})};
    for (int type = 3; type < _VELON_TYPE_COUNT_; type++) {
        leaves.push_back(trees.leaf(type));
    }
    documents.insert(documents.end(), {leaves[1], arrayOf(leaves), objectOf({"bb", "a", "", "ab"}, {kLists, kNull, kPair, leaves[10]})});
    for (const Value &v : documents) {
        const Bytes bytes = encode(v);
        for (std::size_t i = 0; i < bytes.size() && !HasFailure(); i++) {
            readsSafely(bytes.substr(0, i));
            readsSafely(bytes.substr(i));
            for (int change = 1; change < 256; change++) {
                Bytes changed = bytes;
                changed[i] = static_cast<char>(changed[i] ^ change);
                readsSafely(changed);
            }
        }
    }
    for (int i = 0; i < (COD_WITH_ASAN || COD_WITH_TSAN ? 4000 : 20000) && !HasFailure(); i++) {
        Bytes bytes = encode(trees.tree(4)).substr(0, 400);
        for (CodUint32 changes = trees.below(4); changes > 0; changes--) {
            bytes[trees.below(bytes.size())] = static_cast<char>(trees.below(trees.below(3) == 0 ? 256 : 20));
        }
        readsSafely(bytes);
    }
}

}  // namespace
