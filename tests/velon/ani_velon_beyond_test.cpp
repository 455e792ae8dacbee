#include <cmath>
#include <map>

#include <vel_infra/velon/ani_velon_equal.h>
#include <vel_infra/velon/ani_velon_json.h>
#include <vel_infra/velon/ani_velon_order.h>
#include <vel_infra/velon/ani_velon_patch.h>
#include <vel_infra/velon/ani_velon_path.h>

#include "support/collection_support.h"
#include "velon/velon_walk.h"

namespace {

using namespace velon_model;
using collection_support::expectError;

// Bytes that end with their memory, as a text and as a document.
struct Exact {
    Exact(const Bytes &given) : bytes(given.begin(), given.end()) {}
    Exact(const char *given) : Exact(Bytes(given)) {}
    const std::vector<char> bytes;
    const CodText text = {const_cast<char *>(bytes.data()), static_cast<CodUint32>(bytes.size()), 0};
    const Velon velon = {nullptr, velonDataNew(reinterpret_cast<const CodUint8 *>(bytes.data()), text.len, 0)};
};

// What a call makes of its owner's memory, after every failure of memory on the way; "" when it fails, as it must with this code.
template <typename Call>
Bytes made(CodError code, Call call) {
    for (CodInt32 n = 0;; n++) {
        collection_support::WatchedMemory memory;
        Velon velon = {};
        codCleanError();
        codFailAllocAfter(n);
        const bool isMade = call(&memory, &velon) == COD_SUCCESS;
        codFailAllocAfter(-1);
        EXPECT_TRUE(isMade ? n > 0 && velonCheckData(&velon) == COD_SUCCESS : velon.data.ptr == nullptr);
        EXPECT_EQ(memory.live.size(), isMade ? 1u : 0u);
        if (codGetErrorCode() != ERR_CMM_ALLOC_MEMORY) {
            EXPECT_EQ(codGetErrorCode(), code) << codGetErrorMsg2();
            return Bytes(velon.data.ptr, velon.data.ptr + velon.data.len);
        }
    }
}
Bytes fromJson(const Exact &json) {
    return made(0, [&](auto *owner, auto *velon) { return velonFromJson(owner, &json.text, velon); });
}
Bytes repeat(const Bytes &part, std::size_t count) {
    return count < 2 ? Bytes(count == 0 ? "" : part) : repeat(part, count / 2) + repeat(part, count - count / 2);
}
// Arrays whose entries all lead to one value, the next such array: few bytes and many ways.
Bytes shared(std::size_t width, int depth, const Bytes &last) {
    const Bytes inner = depth == 0 ? last : shared(width, depth - 1, last);
    const Bytes entries = repeat(inner.substr(0, 1) + little(2 + 5 * width, 4), width);
    return "\2" + little(2 + entries.size() + inner.size(), 4) + little(width, 2) + entries + inner;
}
std::vector<Bytes> split(const Bytes &words, char separator) {
    const std::size_t end = words.find(separator);
    std::vector<Bytes> rest = end == Bytes::npos ? std::vector<Bytes>() : split(words.substr(end + 1), separator);
    return rest.insert(rest.begin(), words.substr(0, end)), rest;
}

const char *const kOrder = R"({"order": {"lines": [{"id": 1}, {"id": 2, "unit price": 2.5}, "x", null, -7]}, "last": [10, 20, 30],
    "one": {"only": [5]}, "empty": {}, "none": [], "say \"a\"": 1, "it's": 2, "é": 3, "_x$1": true, "": 4, "count": 6, "$": 7})";
const char *const kLeads =
    R"($.order.lines[1].id=2|$.order.lines[0]={"id":1}|$.order.lines[3]=null|$.order.lines[4]=-7|$.one.*=[5]|$.one.only[*]=5|$.empty={})"
    R"(| $ . order . lines [ 1 ] . "unit price" =2.5|$.last[last]=30|$.last[last-2]=10|$.last[ last - 0 ]=30|$.'say "a"'=1|$."it's"=2)"
    R"(|$.é=3|$._x$1=true|$.""=4|$.''=4|$.count=6|$.$=7|$.*.only[*]=5|$.order.lines[*]."unit price"=2.5|$.*.*[1].id=2|$.*[0]=10)";
// The message, with the path or the column of the mark in it, and the paths.
const std::vector<Bytes> kRefused[] = {
    {"22 path expression \"", "\" has no result",
     "$.absent|$.last[3]|$.last[last-3]|$.none[last]|$.none[*]|$.empty.*|$.order[0]|$.last.a|$.last.*|$.one[*]|$.count.a|$.count[0]|$.Last"
     "|$.last[65536]|$.last[4294967296]|$.last[18446744073709551616]|$.last[last-4294967296]|$.last[last-18446744073709551617]|$.*.absent"},
    {"23 path expression \"", "\" has more than one result", "$.*|$.last[*]|$.order.lines[*].id| $ .*.*"},
    {"24 path expression function count needs an array wrapper", "", "$.count()|$.absent . count ( ) |$.*.count()"},
    {"24 path expression function size needs an array wrapper", "", "$.size()"},
    {"24 path expression function type needs an array wrapper", "", "$.last[*].type()"},
    {"21 path expression syntax error at column ", ": ",
     "^| ^|^x|^.last|$^x|$^$|$ ^last|$.^|$. ^|$.^1a|$.^[0]|$.^.a|$.^-|$[^|$[^]|$[^-1]|$[^x]|$[^'a']|$[1^|$[1^x]|$[1 ^2]|$[1^.5]|$[1^-1]"
     "|$[last^|$[last-^]|$[last-^x]|$[last^+1]|$[*^|$[*^1]|$.*^a|$.last^]|$.a "
     "^b|$.\"a\"^b|$.count(^|$.count(^1)|$.count()^.a|$.count()^[0]"},
    {"21 path expression syntax error at column ", "", "$.absent()|$.\"a|$.'a\""}};

// The bytes of what the path leads to, or the error.
Bytes found(const Exact &document, const Exact &path) {
    VelonLazyValue lazy;
    VelonValue v;
    codCleanError();
    const bool isFound = velonGetPath(&document.velon, &path.text, &lazy) == COD_SUCCESS && lazyGetter(&lazy)(lazy.type, &v) == COD_SUCCESS;
    return !isFound              ? codGetErrorMsg2()
           : isContainer(v.type) ? Bytes(v.u.object.data.ptr, v.u.object.data.ptr + v.u.object.data.len)
                                 : encode(valueOf(v));
}

TEST(VelonPath, leadsToOneValueOrToAnError) {
    const Bytes document = fromJson(kOrder), hostile = shared(60, 60, fromJson("{}")), deep = "VEL-00710 nesting too deeply";
    EXPECT_EQ(found(document, "$"), document);
    for (const Bytes &row : split(kLeads, '|')) {
        EXPECT_EQ(found(document, split(row, '=')[0]), fromJson(split(row, '=')[1])) << row;
    }
    for (const auto &row : kRefused) {
        for (Bytes path : split(row[2], '|')) {
            const std::size_t mark = path.find('^');
            const Bytes place = mark != Bytes::npos ? std::to_string(mark + 1) : row[1].empty() ? "" : path;
            const Bytes text = "VEL-007" + row[0] + place + row[1];
            EXPECT_EQ(found(document, mark != Bytes::npos ? path.erase(mark, 1) : path).substr(0, text.size()), text) << path;
        }
    }
    EXPECT_EQ(found(hostile, "$" + repeat("[*]", 61)).substr(0, 9), "VEL-00723");
    EXPECT_EQ(found(hostile, "$" + repeat("[*]", 61) + ".a"), deep);
    EXPECT_EQ(found(shared(30000, 2, fromJson("0")), "$[*][*][*].a"), deep);
    EXPECT_EQ(found(shared(1, 120, fromJson("0")), "$" + repeat("[*]", 121)), deep);
}

void expectPaths(const Bytes &document, const Value &v, const Bytes &path, Trees &random) {
    for (std::size_t i = 0, count = v.values.size(); i < count; i++) {
        const bool isWord = !v.keys.empty() && !v.keys[i].empty() && v.keys[i].find('"') == Bytes::npos && random.below(2) == 0;
        const Bytes index = random.below(2) == 0 ? std::to_string(i) : "last-" + std::to_string(count - 1 - i);
        const Bytes step = v.keys.empty() ? "[" + index + "]" : isWord ? "." + v.keys[i] : ".'" + v.keys[i] + "'";
        expectPaths(document, v.values[i], path + step, random);
    }
    EXPECT_EQ(found(document, path), encode(v)) << path;
}

TEST(VelonOrder, isThatOfWriting) {
    Trees random;
    for (CodUint32 count = 0; count <= 200; count++) {
        Value v = objectOf({}, {}), seen = v;
        for (CodUint32 i = 0; i < count; i++) {
            v.keys.insert(v.keys.begin() + random.below(i + 1), Bytes(random.below(3), 'k') + std::to_string(i));
            v.values.push_back(random.leaf(static_cast<int>(3 + random.below(14))));
        }
        const Exact document(encode(v));
        std::vector<CodUint16> order(count);
        VelonObject object;
        VelonOrderedIter iter;
        VelonLazyValue lazy;
        VelonValue value;
        CodText key = {};
        CodBool has = false;
        ASSERT_EQ(velonGetObject(&document.velon, &object), COD_SUCCESS);
        ASSERT_EQ(velonOrderedIterNew(&object, order.data(), count, &iter), COD_SUCCESS);
        while (velonOrderedIterHasNext(&iter)) {
            ASSERT_EQ(velonOrderedIterNext(&iter, &has, &key, &lazy), COD_SUCCESS);
            ASSERT_EQ(lazyGetter(&lazy)(lazy.type, &value), COD_SUCCESS);
            seen.keys.push_back(bytesOf(key));
            seen.values.push_back(valueOf(value));
            expectError(ERR_CMM_BUFFER_SIZE_TOO_SMALL, "",
                        [&] { return velonOrderedIterNew(&object, order.data(), iter.index - 1u, &iter); });
        }
        EXPECT_TRUE(seen == v && velonOrderedIterNext(&iter, &has, &key, &lazy) == COD_SUCCESS && !has);
    }
}

// Words of equal documents: a type's letter and the value, "j" with JSON text.
const char *const kClasses =
    "t1 s1 i1 b1 f1 d1 n1 n1.00 n0.1e1|t-1 s-1 i-1 b-1 f-1 d-1 n-1.0|t0 b0 f0 d0 f-0 d-0 n0 n0.00|t127 s127 d127 n127|n1e125 n10e124|d0.1"
    "|i-2147483648 b-2147483648 f-2147483648 n-2147483648|b9007199254740992 d9007199254740992 f9007199254740992 n9007199254740992|d2.5 n2.5"
    "|b9007199254740993 n9007199254740993|b9007199254740994 d9007199254740994 n9007199254740994|n0.1 n0.10|d0.5 f0.5 n0.5 n0.50|d1e125|C1"
    "|f0.1 d0.100000001490116119384765625 n0.100000001490116119384765625|n-2.5|dnan fnan d-nan f-nan|dinf finf|d-inf f-inf|d1e22 n1e22|T1"
    "|d1e23|n1e23|d5e-324|f1e-45 d0x1p-149|d1e-310|n1e-130|d1e-130|d0x1p-30 f0x1p-30 n9.31322574615478515625e-10|d0x1p64|d0x1p1023|D1|x1"
    "|b9223372036854775807 n9223372036854775807|d0x1p63 f0x1p63 n9223372036854775808|b-9223372036854775808 d-0x1p63 n-9223372036854775808"
    "|d0x1p126 f0x1p126 n85070591730234615865843651857942052864|n85070591730234615865843651857942052865|b-9223372036854775807|x|T0|jnull"
    R"(|jtrue|jfalse|j"1"|j""|j[]|j{}|j[null]|j[[]]|j[1] j[1.0E0]|j[1,2]|j[2,1]|j{"a":1} j{"a":1E0}|j{"b":1}|j{"a":2,"b":1}|j{"a":{}})"
    R"(|j[{"a":1,"b":[0.5]}] j[{"b":[0.5E0],"a":1}]|j{"a":1,"b":2} j{"b":2,"a":1}|j[1,"a"])";

Bytes document(const Bytes &word) {
    const auto type = static_cast<VelonType>(Bytes("--j-n--tsibfdxTDC").find(word[0]));
    const Bytes text = word.substr(1);
    CodNumber number = {};
    CodUint8 stored[COD_NUMBER_STORED_SIZE];
    CodBytes bytes = {stored, 0, 0};
    std::ignore = codNumberFromStr(text.c_str(), &number) == COD_SUCCESS && codEncodeNumber(&number, &bytes);  // zeros and all
    return word[0] == 'j'   ? fromJson(text)
           : word[0] == 'n' ? "\4" + little(bytes.size, 1) + Bytes(stored, stored + bytes.size)
           : word[0] == 'x' ? encode({type, text})
           : word[0] == 'f' ? encode({type, raw(std::strtof(text.c_str(), nullptr))})
           : word[0] == 'd' ? encode({type, raw(std::strtod(text.c_str(), nullptr))})
                            : encode({type, raw(static_cast<CodInt64>(std::strtold(text.c_str(), nullptr))).substr(0, kWidths[type])});
}
bool areEqual(const Exact &left, const Exact &right) {
    CodBool is[2] = {};
    CodUint64 hashes[2] = {};
    EXPECT_EQ(velonEqual(&left.velon, &right.velon, &is[0]) + velonEqual(&right.velon, &left.velon, &is[1]), COD_SUCCESS);
    EXPECT_EQ(velonHash(&left.velon, &hashes[0]) + velonHash(&right.velon, &hashes[1]), COD_SUCCESS);
    EXPECT_TRUE(is[0] == is[1] && (!is[0] || hashes[0] == hashes[1]));
    return is[0];
}

TEST(VelonEqual, whatIsEqualAndWhatIsNot) {
    for (const Bytes &row : split(kClasses, '|')) {
        for (const Bytes &other : split(kClasses, '|')) {
            for (const Bytes &word : split(other, ' ')) {
                EXPECT_EQ(areEqual(document(split(row, ' ')[0]), document(word)), row == other) << row << " and " << word;
            }
        }
    }
    CodBool isEqual;
    CodUint64 hash;
    for (const Exact hostile : {shared(2, 60, fromJson("0")), shared(1, 120, fromJson("0"))}) {
        expectError(710, "nesting too deeply", [&] { return velonEqual(&hostile.velon, &hostile.velon, &isEqual); });
        expectError(710, "nesting too deeply", [&] { return velonHash(&hostile.velon, &hash); });
    }
}

// Words of numbers near each other with all their digits: the same digits say the same number.
TEST(VelonEqual, numbersExactly) {
    Trees random;
    const auto digitsOf = [](const Bytes &word) {
        const std::size_t end = word.find('e');
        return word.substr(1, word.find_last_not_of(".0", end - 1)) + word.substr(end);
    };
    const auto wordNear = [&](double d) {
        char text[300];
        const auto whole = static_cast<CodInt64>(std::clamp(d, -9e18, 9e18)) + random.below(3) - 1;
        const std::pair<char, long double> forms[] = {
            {'d', d}, {'d', std::nextafter(d, 0)}, {'f', static_cast<float>(d)}, {'n', d}, {'b', whole}};
        const auto &[letter, value] = forms[random.below(5)];
        std::snprintf(text, sizeof(text), "%c%.*Le", letter, letter == 'n' ? static_cast<int>(std::min(37u, random.below(60))) : 200,
                      value);
        return Bytes(text);
    };
    int equal = 0;
    for (int i = 0; i < 20000; i++) {
        const auto whole = static_cast<double>((random.next() >> random.below(64)) + 1);
        const double values[] = {whole, -whole, std::ldexp(whole, static_cast<int>(random.below(100)) - 50),
                                 -std::ceil(whole / 1000) / 100};
        const double d = values[random.below(4)];
        const Bytes left = wordNear(d), right = wordNear(d);
        const bool isSame = digitsOf(left) == digitsOf(right);
        equal += isSame;
        EXPECT_EQ(areEqual(document(left), document(right)), isSame) << left << " and " << right;
    }
    EXPECT_GT(equal, 5000);
}

// The same with members in another order and integers in a wider type.
Value rewritten(Value v) {
    const bool isWhole = v.type >= VELON_TYPE_TINYINT && v.type <= VELON_TYPE_BIGINT;
    v = isWhole ? Value{VELON_TYPE_BIGINT, v.data + Bytes(8 - v.data.size(), v.data.back() < 0 ? '\xff' : '\0')} : v;
    std::transform(v.values.begin(), v.values.end(), v.values.begin(), rewritten);
    std::reverse(v.values.begin(), v.keys.empty() ? v.values.begin() : v.values.end());
    std::reverse(v.keys.begin(), v.keys.end());
    return v;
}
Value &anyOf(Value &v, Trees &random) {
    return v.values.empty() ? v : anyOf(v.values[random.below(v.values.size())], random);
}

Bytes patched(CodError code, const Bytes &document, const Exact &path, const Value &v) {
    const Exact source(document);
    VelonValue value = {v.type, {}};
    std::memcpy(static_cast<void *>(&value.u), v.data.data(), std::min(v.data.size(), sizeof(value.u)));
    const Bytes copy = made(code, [&](auto *owner, auto *to) { return velonPatchScalar(owner, &source.velon, &path.text, &value, to); });
    EXPECT_EQ(bytesOf(source.text), document);
    return copy;
}

TEST(VelonPatch, changesOneScalar) {
    Trees random;
    for (int type = 5, i = 0; type < _VELON_TYPE_COUNT_; type += i++ % 20 == 19) {
        const Value old = random.leaf(type), fresh = random.leaf(type), other = random.leaf(type == 5 ? 7 : 5);
        const auto tree = [&](const Value &a, const Value &b) {
            return encode(objectOf({"zz", "k"}, {arrayOf({old, a, old}), objectOf({"", "k", "a"}, {old, b, old})}));
        };
        const Bytes before = tree(old, old);
        const CodError code = type == VELON_TYPE_NULL || type == VELON_TYPE_BINARY ? 3 : 0;
        EXPECT_EQ(patched(code, before, "$.zz[1]", fresh), code == 0 ? tree(fresh, old) : "");
        EXPECT_EQ(patched(code, before, "$.k.k", fresh), code == 0 ? tree(old, fresh) : "");
        EXPECT_EQ(patched(code, encode(old), "$", fresh), code == 0 ? encode(fresh) : "");
        EXPECT_EQ(patched(703, before, "$.k.k", other) + patched(703, before, "$.zz[1]", other), "");
    }
    const Value text = random.leaf(VELON_TYPE_STRING), number = random.leaf(VELON_TYPE_NUMBER), tiny = random.leaf(VELON_TYPE_TINYINT);
    const Bytes large = encode(arrayOf({tiny, {VELON_TYPE_STRING, Bytes(VELON_MAX_SIZE, 'x')}}));
    EXPECT_EQ(patched(3, encode(text), "$", text) + patched(3, encode(number), "$", number) + patched(704, large, "$[0]", tiny), "");
    // A bool is the whole word of its entry.
    const Bytes wide("\2\x07\0\0\0\1\0\5\0\1\0\0", 12), narrow("\2\x07\0\0\0\1\0\5\0\0\0\0", 12);
    EXPECT_EQ(patched(0, wide, "$[0]", {VELON_TYPE_BOOL, Bytes(1, '\0')}), narrow);
    EXPECT_EQ(patched(722, encode(tiny), "$.a", tiny) + patched(724, encode(tiny), "$.type()", tiny), "");
}

// Target, patch, result.
const char *const kMerges =
    R"({"k":1};{"k":2};{"k":2}|{"k":1};{"l":2};{"k":1,"l":2}|{"k":1};{"k":null};{}|{"k":1,"l":2};{"k":null};{"l":2})"
    R"(|{"k":[1]};{"k":2};{"k":2}|{"k":2};{"k":[1]};{"k":[1]}|{"k":{"l":1}};{"k":{"l":2,"m":null}};{"k":{"l":2}})"
    R"(|{"k":[{"l":1}]};{"k":[3]};{"k":[3]}|[1,2];[3,4];[3,4]|{"k":1};[2];[2]|{"k":5};null;null|{"k":5};"s";"s")"
    R"(|{"m":null};{"k":1};{"k":1,"m":null}|[1,2];{"k":1,"m":null};{"k":1}|1;{};{}|{};{"k":{"ll":{"mmm":null}}};{"k":{"ll":{}}})"
    R"(|{};{"k":[{"l":null}]};{"k":[{"l":null}]}|{"bb":1,"b":2};{"a":3};{"a":3,"b":2,"bb":1})"
    R"(|{"m":{"b":1,"a":2}};{"m":{"c":3}};{"m":{"a":2,"b":1,"c":3}}|{};{"b":1,"a":{"d":1,"c":2}};{"a":{"c":2,"d":1},"b":1})";

Bytes merged(CodError code, const Exact &target, const Exact &patch) {
    return made(code, [&](auto *owner, auto *velon) { return velonMergePatch(owner, &target.velon, &patch.velon, velon); });
}

// As the RFC has it.
Value model(const Value &target, const Value &patch) {
    std::map<Bytes, Value> members;
    const bool isObject = patch.type == VELON_TYPE_OBJECT;
    for (std::size_t i = 0; i < target.keys.size(); i++) {
        members[target.keys[i]] = target.values[i];
    }
    for (std::size_t i = 0; i < patch.keys.size(); i++) {
        const Value v = model(members[patch.keys[i]], patch.values[i]);
        v.type == VELON_TYPE_NULL ? void(members.erase(patch.keys[i])) : void(members[patch.keys[i]] = v);
    }
    Value out = isObject ? objectOf({}, {}) : patch;
    for (auto it = members.begin(); isObject && it != members.end(); ++it) {
        out.keys.push_back(it->first);
        out.values.push_back(it->second);
    }
    return out;
}

TEST(VelonPatch, merges) {
    for (const Bytes &row : split(kMerges, '|')) {
        const auto parts = split(row, ';');
        EXPECT_EQ(merged(0, fromJson(parts[0]), fromJson(parts[1])), fromJson(parts[2])) << row;
    }
    Value full = objectOf({}, std::vector<Value>(VELON_MAX_ELEMENTS));
    for (int i = 0; i < VELON_MAX_ELEMENTS; i++) {
        full.keys.push_back(std::to_string(i));
    }
    EXPECT_EQ(merged(713, encode(full), fromJson(R"({"a":1})")), "");
    EXPECT_EQ(merged(0, encode(full), fromJson(R"({"a":1,"0":null})")).substr(5, 2), "\xff\xff");
}

TEST(VelonPatch, lawsOnRandomDocuments) {
    Trees random;
    for (int i = 0; i < 1000; i++) {
        const Value v = random.tree(5);
        Value changed = rewritten(v);
        expectPaths(encode(v), v, "$", random);
        EXPECT_TRUE(areEqual(encode(v), encode(changed)));
        for (CodUint32 changes = 1 + random.below(5); changes > 0; changes--) {
            anyOf(changed, random) = changes == 1 ? Value{VELON_TYPE_STRING, "new"} : random.below(2) == 0 ? random.tree(3) : Value();
        }
        EXPECT_FALSE(areEqual(encode(v), encode(changed)));
        for (const Value &patch : {changed, random.tree(4)}) {
            EXPECT_EQ(Decoder(merged(0, encode(v), encode(patch))).document(), Decoder(encode(model(v, patch))).document());
        }
    }
}

}  // namespace
