#pragma once

// Velon in plain strings, from the format alone: trees of values, their bytes, and bytes back to trees under every rule of validation but
// the bound on work. Calls nothing of velon/.

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/velon/ani_velon_base.h>

namespace velon_model {

using Bytes = std::string;

constexpr CodUint32 kWidths[] = {0, 0, 0, 0, sizeof(CodNumber), 1, 0, 1, 2, 4, 8, 4, 8, 0, 8, 8, 8};
constexpr auto isContainer = [](int type) { return type <= 2; };
constexpr auto isCounted = [](int type) { return type == 3 || type == 13; };
constexpr auto isInline = [](int type) { return type >= 5 && type <= 11 && type != 10; };

struct Value {
    bool operator==(const Value &) const = default;

    VelonType type = VELON_TYPE_NULL;
    Bytes data = {};               // what the reader of a scalar gives: the C type, or the bytes of the string or binary
    std::vector<Bytes> keys = {};  // of an object, in the order of writing
    std::vector<Value> values = {};
};

constexpr auto arrayOf = [](std::vector<Value> values) { return Value{VELON_TYPE_ARRAY, {}, {}, std::move(values)}; };
constexpr auto objectOf = [](std::vector<Bytes> keys, std::vector<Value> values) {
    return Value{VELON_TYPE_OBJECT, {}, std::move(keys), std::move(values)};
};
constexpr auto raw = [](const auto &value) { return Bytes(reinterpret_cast<const char *>(&value), sizeof(value)); };
constexpr auto little = [](CodUint64 value, std::size_t width) { return raw(value).substr(0, width); };
constexpr auto keyLess = [](const Bytes &a, const Bytes &b) { return a.size() != b.size() ? a.size() < b.size() : a < b; };

// ---- To bytes ----

inline Bytes varint(CodUint64 value) {
    return value < 128 ? little(value, 1) : little((value & 127) | 128, 1) + varint(value >> 7);
}

inline Bytes storedNumber(const Bytes &data) {
    CodNumber number;
    CodUint8 stored[COD_NUMBER_STORED_SIZE];
    CodBytes bytes = {stored, 0, 0};
    std::memcpy(&number, data.data(), sizeof(number));
    return codNumberEncode(&number, &bytes) == COD_SUCCESS ? Bytes(stored, stored + bytes.size) : throw codGetErrorCode();
}

inline Bytes encode(const Value &v) {
    const std::size_t count = v.values.size(), width = v.type == VELON_TYPE_OBJECT ? 4 : 5;
    const Bytes type(1, static_cast<char>(v.type)), stored = v.type == VELON_TYPE_NUMBER ? storedNumber(v.data) : v.data;
    if (!isContainer(v.type)) {
        return type + (isCounted(v.type) || v.type == VELON_TYPE_NUMBER ? varint(stored.size()) : "") + stored;
    }
    Bytes entries, records;
    std::vector<std::size_t> order(v.keys.size()), offsets;
    for (std::size_t i = 0; i < count; i++) {
        const Value &child = v.values[i];
        offsets.push_back(2 + width * count + records.size());
        entries += static_cast<char>(child.type) +
                   (isInline(child.type) ? child.data + Bytes(4 - child.data.size(), '\0') : little(offsets[i], 4));
        records += order.empty() ? "" : little(v.keys[i].size(), 2) + v.keys[i];
        records += order.empty() && isInline(child.type) ? "" : encode(child);
    }
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(), [&](auto a, auto b) { return keyLess(v.keys[a], v.keys[b]); });
    entries = order.empty() ? entries : "";
    std::for_each(order.begin(), order.end(), [&](auto i) { entries += little(offsets[i], 4); });
    return type + little(2 + entries.size() + records.size(), 4) + little(count, 2) + entries + records;
}

// ---- From bytes ----

inline bool isUtf8(const Bytes &text) {
    for (std::size_t i = 0, size; i < text.size(); i += size) {
        const auto lead = static_cast<CodUint8>(text[i]);
        size = lead < 0x80 ? 1 : lead < 0xc0 ? 9 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf8 ? 4 : 9;
        CodUint32 point = size == 1 ? lead : lead & (0x7fu >> size), more = 1;
        for (; more < size && i + more < text.size() && (text[i + more] & 0xc0) == 0x80; more++) {
            point = point << 6 | (text[i + more] & 0x3f);
        }
        const CodUint32 least[] = {0, 0, 0x80, 0x800, 0x10000};
        if (more != size || point < least[size] || point > 0x10ffff || (point >= 0xd800 && point < 0xe000)) {
            return false;
        }
    }
    return true;
}

// Objects come out in key order. Throws the code of an error.
class Decoder {
public:
    explicit Decoder(const Bytes &document) : in_(document) {}
    Value document() {
        Value root = value(0, in_.size(), 0);
        require(end_ == in_.size(), ERR_CMM_VELON_DATA_LENGTH_MISMATCHED);
        return root;
    }

private:
    static void require(bool condition, CodError code) {
        condition ? void() : throw code;
    }
    Bytes bytes(std::size_t pos, std::size_t size, std::size_t stop) {
        require(pos + size <= stop, ERR_CMM_VELON_INDEX_OUT_OF_BOUNDS);
        end_ = pos + size;
        return in_.substr(pos, size);
    }
    std::size_t number(std::size_t pos, std::size_t size, std::size_t stop) {
        std::size_t out = 0;
        return std::memcpy(&out, bytes(pos, size, stop).data(), size), out;
    }
    VelonType typeAt(std::size_t pos, std::size_t stop) {
        const std::size_t type = number(pos, 1, stop);
        return type >= 1 && type <= 16 ? static_cast<VelonType>(type) : throw CodError{ERR_CMM_VELON_INVALID_TYPE};
    }
    Bytes payload(int type, std::size_t pos, std::size_t stop) {
        std::size_t size = kWidths[type], group = 128;
        for (int shift = 0; isCounted(type) && group >= 128; shift += 7) {
            require(shift < 28, ERR_CMM_VELON_INVALID_VARINT);
            group = number(pos++, 1, stop);
            size |= (group & 127) << shift;
        }
        size = type == VELON_TYPE_NUMBER ? number(pos++, 1, stop) : size;
        require(type != VELON_TYPE_NUMBER || size <= 20, ERR_CMM_VELON_INVALID_NUMBER);
        Bytes data = bytes(pos, size, stop);
        const CodBytes view = {reinterpret_cast<CodUint8 *>(data.data()), static_cast<CodUint32>(size), 0};
        CodNumber decoded;
        require(type != VELON_TYPE_NUMBER || codDecodeNumber(&view, &decoded) == COD_SUCCESS, ERR_CMM_BYTES_ERROR);
        return type == VELON_TYPE_NUMBER ? raw(decoded) : type == VELON_TYPE_BOOL ? little(data[0] != 0, 1) : data;
    }
    Value value(std::size_t pos, std::size_t stop, unsigned depth) {
        const VelonType type = typeAt(pos, stop);
        if (isContainer(type)) {
            require(depth <= 100, ERR_CMM_VELON_NESTING_TOO_DEEPLY);
            return container(type, pos, stop, depth);
        }
        const Value v = {type, payload(type, pos + 1, stop)};
        CodInt64 time = 0;
        std::memcpy(&time, v.data.data(), type >= VELON_TYPE_TIMESTAMP ? 8 : 0);
        const bool isTime = type == VELON_TYPE_TIME;
        require(time >= (isTime ? 0 : -62135596800000000) && time <= (isTime ? 86399999999 : 253402300799999999),
                ERR_CMM_VELON_INVALID_DATETIME);
        require(type != VELON_TYPE_STRING || isUtf8(v.data), ERR_CMM_VELON_INVALID_UNICODE);
        return v;
    }
    Value container(VelonType type, std::size_t pos, std::size_t stop, unsigned depth) {
        const std::size_t own = pos + 5 + number(pos + 1, 4, stop), count = number(pos + 5, 2, stop);
        const std::size_t width = type == VELON_TYPE_OBJECT ? 4 : 5;
        require(pos + 7 + width * count <= own && own <= stop, ERR_CMM_VELON_INDEX_OUT_OF_BOUNDS);
        Value v = {type};
        for (std::size_t i = 0, at = pos + 7; i < count; i++, at += width) {
            const VelonType entry = width == 5 ? typeAt(at, own) : type;
            std::size_t child = pos + 5 + number(at + width - 4, 4, own);
            if (width == 4) {
                v.keys.push_back(bytes(child + 2, number(child, 2, own), own));
                child = end_;
                require(i == 0 || keyLess(v.keys[i - 1], v.keys[i]), ERR_CMM_VELON_INVALID_KEY);
            }
            const bool isHere = width == 5 && isInline(entry);
            const Bytes data = little(number(at + width - 4, 4, own), isHere ? kWidths[entry] : 0);
            require(isHere || width == 4 || typeAt(child, own) == entry, ERR_CMM_VELON_INVALID_TYPE);
            v.values.push_back(!isHere ? value(child, own, depth + 1) : Value{entry, data});
            isHere &&entry == VELON_TYPE_BOOL ? void(v.values[i].data = little(number(at + 1, 4, own) != 0, 1)) : void();
        }
        end_ = own;
        return v;
    }

    const Bytes &in_;
    std::size_t end_ = 0;  // behind what was read last
};

// ---- Random trees ----

struct Trees {
    CodUint32 below(std::size_t limit) {
        return static_cast<CodUint32>(next() % limit);
    }
    Bytes text(CodUint32 pieces) {
        const char *all[] = {"a", "b", "\"", "\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80"};
        return pieces == 0 ? "" : all[below(6)] + text(pieces - 1);
    }
    Value leaf(int type) {
        CodUint64 bits = next() >> (below(2) * 50);
        bits = type == VELON_TYPE_TIME ? bits % 86400000000 : type >= 14 ? bits % 315537897600000000 - 62135596800000000 : bits;
        CodNumber number = {{{bits / 10 * 10, next() >> (8 + below(56))}}, below(2) == 1, 0, static_cast<CodInt16>(below(200) - 100)};
        Bytes stored = type == VELON_TYPE_NUMBER ? storedNumber(raw(number)) : "";
        const CodBytes view = {reinterpret_cast<CodUint8 *>(stored.data()), static_cast<CodUint32>(stored.size()), 0};
        (void)(type == VELON_TYPE_NUMBER && codDecodeNumber(&view, &number));
        return {static_cast<VelonType>(type), type == VELON_TYPE_NUMBER ? raw(number)
                                              : type == VELON_TYPE_BOOL ? little(bits & 1, 1)
                                              : type == VELON_TYPE_BINARY
                                                  ? little(bits, below(9)) + Bytes(below(60) == 0 ? below(3000) : 0, 'x')
                                              : type == VELON_TYPE_STRING ? text(below(20) == 0 ? below(300) : below(5))
                                                                          : little(bits, kWidths[type])};
    }
    Value tree(CodUint32 depth) {
        const CodUint32 type = depth == 0 || below(4) == 0 ? 3 + below(14) : 1 + below(2);
        Value v = isContainer(static_cast<int>(type)) ? Value{static_cast<VelonType>(type)} : leaf(static_cast<int>(type));
        std::set<Bytes> keys;
        for (CodUint32 i = type <= 2 ? below(below(10) == 0 ? 60 : 7) : 0; i > 0; i--) {
            const Bytes key = below(200) == 0 ? Bytes(below(3000), 'k') : text(below(4)) + text(below(2));
            if (type == VELON_TYPE_ARRAY || keys.insert(key).second) {
                v.values.push_back(tree(below(3) == 0 ? depth - 1 : 0));
                v.keys.resize(keys.size(), key);
            }
        }
        below(2) == 0 ? std::sort(v.keys.begin(), v.keys.end(), keyLess) : void();
        return v;
    }

    std::mt19937_64 next{1};
};

}  // namespace velon_model
