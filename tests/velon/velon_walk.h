#pragma once

// Reads a document of any bytes by every reader there is. Readers must agree with one another, and with validation: no error in what it
// accepts. For tests and for fuzzing.

#include <functional>
#include <memory>
#include <tuple>

#include <vel_infra/velon/ani_velon.h>
#include <vel_infra/velon/ani_velon_array.h>
#include <vel_infra/velon/ani_velon_data.h>
#include <vel_infra/velon/ani_velon_lazy.h>
#include <vel_infra/velon/ani_velon_object.h>

#include "velon_model.h"

// The types as functions name them; prefix and arguments are a family's, `ref` is how builders take the value.
#define VELON_CONTAINERS(X, prefix, ...)              \
    X(prefix, Object, OBJECT, object, &, __VA_ARGS__) \
    X(prefix, Array, ARRAY, array, &, __VA_ARGS__)
#define VELON_SCALARS(X, prefix, ...)                        \
    X(prefix, String, STRING, text, &, __VA_ARGS__)          \
    X(prefix, Number, NUMBER, number, &, __VA_ARGS__)        \
    X(prefix, Bool, BOOL, boolean, , __VA_ARGS__)            \
    X(prefix, Tinyint, TINYINT, tinyint, , __VA_ARGS__)      \
    X(prefix, Smallint, SMALLINT, smallint, , __VA_ARGS__)   \
    X(prefix, Integer, INTEGER, integer, , __VA_ARGS__)      \
    X(prefix, Bigint, BIGINT, bigint, , __VA_ARGS__)         \
    X(prefix, Float, FLOAT, float32, , __VA_ARGS__)          \
    X(prefix, Double, DOUBLE, float64, , __VA_ARGS__)        \
    X(prefix, Binary, BINARY, bytes, &, __VA_ARGS__)         \
    X(prefix, Timestamp, TIMESTAMP, datetime, , __VA_ARGS__) \
    X(prefix, Date, DATE, datetime, , __VA_ARGS__)           \
    X(prefix, Time, TIME, datetime, , __VA_ARGS__)

// A family of getters as one function; for NULL, which has none, it only names the type.
#define VELON_FAMILY(name, parameter, X, prefix, ...)    \
    inline Getter name parameter {                       \
        return [=](VelonType type, VelonValue *out) {    \
            switch (out->type = type) {                  \
                VELON_CONTAINERS(X, prefix, __VA_ARGS__) \
                VELON_SCALARS(X, prefix, __VA_ARGS__)    \
                default:                                 \
                    return COD_SUCCESS;                  \
            }                                            \
        };                                               \
    }
#define VELON_GET(prefix, Name, NAME, member, ref, ...) \
    case VELON_TYPE_##NAME:                             \
        return prefix##Name(__VA_ARGS__, &out->u.member);
#define VELON_GET_UNCHECKED(prefix, Name, NAME, member, ref, ...) \
    case VELON_TYPE_##NAME:                                       \
        return prefix##Name##Unchecked(__VA_ARGS__, &out->u.member);

namespace velon_model {

inline const char *const kNames[] = {nullptr,   "object", "array", "string", "number", "bool",      "null", "tinyint", "smallint",
                                     "integer", "bigint", "float", "double", "binary", "timestamp", "date", "time",    nullptr};

using Getter = std::function<CodResult(VelonType, VelonValue *)>;
VELON_FAMILY(rootGetter, (const Velon *velon), VELON_GET, velonGet, velon)
VELON_FAMILY(uncheckedGetter, (const Velon *velon), VELON_GET_UNCHECKED, velonGet, velon)
VELON_FAMILY(memberGetter, (const VelonObject *o, const CodText *key, CodBool *found), VELON_GET, velonObjectGet, o, key, found)
VELON_FAMILY(elementGetter, (const VelonArray *array, CodInt32 index), VELON_GET, velonArrayGet, array, index)
VELON_FAMILY(lazyGetter, (const VelonLazyValue *lazy), VELON_GET, velonLazyGet, lazy)

constexpr auto bytesOf = [](const auto &text) { return Bytes(text.str, text.len); };

// What a reader gave, a container as its view.
inline Value valueOf(const VelonValue &v) {
    return {v.type, v.type == VELON_TYPE_BINARY   ? Bytes(v.u.bytes.data, v.u.bytes.data + v.u.bytes.size)
                    : v.type == VELON_TYPE_STRING ? bytesOf(v.u.text)
                    : isContainer(v.type)         ? raw(v.u.object)
                                                  : raw(v.u).substr(0, kWidths[int{v.type}])};
}

#define VELON_REQUIRE(condition) ((condition) ? void() : faults.push_back(std::to_string(__LINE__) + ": " #condition))

class Walker {
public:
    explicit Walker(CodUint32 values = 100000) : left_(values) {}

    // The document as far as it could be read, objects in key order.
    Value walk(const Bytes &document) {
        const auto exact = std::make_unique<CodUint8[]>(document.size());
        std::copy(document.begin(), document.end(), exact.get());
        const VelonData data = velonDataNew(exact.get(), static_cast<CodUint32>(document.size()), 0);
        const Velon velon = velonNew(nullptr, &data);
        accepted = velonCheckData(&velon) == COD_SUCCESS;
        wanted_ = static_cast<VelonType>(document.size() % 16);
        Value out;
        VelonLazyValue lazy;
        VelonValue value, other;
        CodBool is[2] = {};
        const CodResult result = velonGetValue(&velon, &value);
        for (int type = 1; type < _VELON_TYPE_COUNT_; type++) {
            std::ignore = uncheckedGetter(&velon)(static_cast<VelonType>(type), &other);
        }
        if (result == COD_SUCCESS) {
            agree(value, rootGetter(&velon));
            same(uncheckedGetter(&velon)(value.type, &other), other, value);
            VELON_REQUIRE(velonGetType(&velon, &other.type) == COD_SUCCESS && other.type == value.type);
            VELON_REQUIRE(velonCheckType(&velon, wanted_, &is[0]) + velonIsNull(&velon, &is[1]) == COD_SUCCESS);
            VELON_REQUIRE(is[0] == (wanted_ == value.type) && is[1] == (value.type == VELON_TYPE_NULL));
        }
        const CodResult lazyResult = velonDataReadLazyValue(&data, 0, &lazy);
        child(out, accepted, result, value, lazyResult, lazy);
        codCleanError();
        return out.values.empty() ? Value() : out.values[0];
    }

    std::vector<Bytes> faults;
    bool accepted = false;

private:
    void same(CodResult result, const VelonValue &got, const VelonValue &expected) {
        VELON_REQUIRE(result == COD_SUCCESS && got.type == expected.type);
        VELON_REQUIRE(valueOf(got) == valueOf(expected));
    }
    // The getter of the value's type gives the value, that of another one the error; all other types get their turn.
    void agree(const VelonValue &expected, const Getter &get) {
        VelonValue got = {};
        wanted_ = static_cast<VelonType>(1 + wanted_ % 16);
        if (wanted_ != expected.type && wanted_ != VELON_TYPE_NULL) {
            codCleanError();
            VELON_REQUIRE(get(wanted_, &got) == COD_ERROR && raw(got.u) == Bytes(sizeof(got.u), '\0'));
            VELON_REQUIRE(codGetErrorCode() == ERR_CMM_VELON_UNEXPECTED_TYPE && codGetErrorStackDepth() == 1);
            VELON_REQUIRE(codGetLastErrorMsg() ==
                          Bytes("velon type mismatched, expect ") + kNames[wanted_] + ", but actual " + kNames[int{expected.type}]);
        }
        same(get(expected.type, &got), got, expected);
    }
    // Both readings of a child fail or give the same. What validation accepts is readable, from here on all the way down.
    void child(Value &parent, bool strict, CodResult result, const VelonValue &value, CodResult lazyResult, const VelonLazyValue &lazy) {
        VelonValue decoded;
        if (lazyResult != COD_SUCCESS || lazyGetter(&lazy)(lazy.type, &decoded) != COD_SUCCESS) {
            VELON_REQUIRE(result == COD_ERROR && !strict);
            return;
        }
        same(result, value, decoded);
        agree(decoded, lazyGetter(&lazy));
        codCleanError();
        const bool sound = velonLazyValueCheck(&lazy, 0) == COD_SUCCESS;
        VELON_REQUIRE(sound || !strict || codGetErrorCode() == ERR_CMM_VELON_NESTING_TOO_DEEPLY);
        Value out = isContainer(value.type) ? Value{value.type} : valueOf(value);
        value.type == VELON_TYPE_OBJECT  ? members(value.u.object, strict || sound, out)
        : value.type == VELON_TYPE_ARRAY ? elements(value.u.array, strict || sound, out)
                                         : void();
        parent.values.push_back(out);
    }

    void members(const VelonObject &object, bool strict, Value &out) {
        CodBool has[4] = {};
        CodText key[3] = {};
        VelonValue value[2];
        VelonLazyValue lazy[2] = {};
        VelonObjectIter iter = velonObjectIterNew(&object);
        const std::vector<Bytes> inOrder = keysInOrder(object);
        for (; velonObjectIterHasNext(&iter) && left_ > 0; left_--) {
            VelonObjectIter keys = iter, values = iter, lazies = iter, last = iter;
            const CodResult result = velonObjectIterNextEntry(&iter, &has[0], &key[0], &value[0]);
            const CodResult keyResult = velonObjectIterNextKey(&keys, &has[1], &key[1]);
            const CodResult lazyResult = velonObjectIterNextKeyAndLazyValue(&lazies, &has[2], &key[2], &lazy[0]);
            VELON_REQUIRE(velonObjectIterNextValue(&values, &has[3], &value[1]) == result);
            VELON_REQUIRE(velonObjectGetNthLazyValue(&object, last.index, &lazy[1]) == lazyResult);
            if (result == COD_SUCCESS) {
                same(result, value[1], value[0]);
                VELON_REQUIRE(has[0] && has[1] && has[2] && has[3] && keyResult == COD_SUCCESS && lazy[0].data.ptr == lazy[1].data.ptr);
                VELON_REQUIRE(bytesOf(key[0]) == bytesOf(key[1]) && bytesOf(key[0]) == bytesOf(key[2]));
                strict ? lookUp(object, last.index, key[0], value[0])
                       : void(memberGetter(&object, &key[0], &has[0])(value[0].type, &value[1]));
                out.keys.push_back(bytesOf(key[0]));
            }
            if (keyResult == COD_SUCCESS) {
                VELON_REQUIRE(key[1].str + key[1].len <= reinterpret_cast<const char *>(object.data.ptr + object.data.len));
                inOrder.empty() ? void() : search(object, inOrder, key[1]);
            }
            child(out, strict, result, value[0], lazyResult, lazy[0]);
            VELON_REQUIRE(iter.index == last.index + (result == COD_SUCCESS));
            iter.index = static_cast<CodUint16>(last.index + 1);
        }
        VELON_REQUIRE(velonObjectGetNthLazyValue(&object, object.data.aux, &lazy[0]) == COD_ERROR);
        const Bytes absent(70000, 'k');
        const CodText longest = {const_cast<char *>(absent.data()), 70000, 0};
        has[1] = true;
        VELON_REQUIRE(!strict || (memberGetter(&object, &longest, &has[1])(VELON_TYPE_BOOL, &value[0]) == COD_SUCCESS && !has[1]));
        VELON_REQUIRE(left_ == 0 || (velonObjectIterNextKey(&iter, &has[0], &key[0]) == COD_SUCCESS && !has[0]));
        VELON_REQUIRE(velonObjectGetElementCount(&object) == object.data.aux && velonObjectGetDataLength(&object) == object.data.len);
    }
    // All keys, as long as they can be read and ascend or are equal.
    static std::vector<Bytes> keysInOrder(const VelonObject &object) {
        std::vector<Bytes> keys;
        CodUint32 offset = 0, pos = 0;
        CodText key = {};
        for (CodUint32 i = 0; i < object.data.aux; i++) {
            std::memcpy(&offset, object.keyOffsets + 4 * i, 4);
            if (velonObjectReadKey(&object, offset, &key, &pos) != COD_SUCCESS || (i > 0 && keyLess(bytesOf(key), keys.back()))) {
                return {};
            }
            keys.push_back(bytesOf(key));
        }
        return keys;
    }
    // The search as the format words it: of equal keys it finds the one that it meets first.
    void search(const VelonObject &object, const std::vector<Bytes> &keys, const CodText &key) {
        std::size_t low = 0, high = keys.size(), middle = high / 2;
        for (; low < high && keys[middle] != bytesOf(key); middle = low + (high - low) / 2) {
            (keyLess(keys[middle], bytesOf(key)) ? low : high) = middle + keyLess(keys[middle], bytesOf(key));
        }
        VelonLazyValue lazy = {};
        CodBool found = false;
        CodUint32 pos = 0;
        const CodResult result = velonObjectGetNthLazyValue(&object, static_cast<CodUint32>(middle), &lazy);
        VELON_REQUIRE(velonObjectFindKey(&object, &key, &found, &pos) == COD_SUCCESS && found == (low < high));
        VELON_REQUIRE(result == COD_ERROR || lazy.data.ptr == object.data.ptr + pos);
    }
    void lookUp(const VelonObject &object, CodUint32 index, const CodText &key, const VelonValue &value) {
        VelonValue got;
        VelonLazyValue lazy = {};
        VelonType type = VELON_TYPE_INVALID;
        CodText keyRead = {};
        CodBool found[7] = {}, is[2] = {};
        CodUint32 pos = 0, payload = 0, again = 0, offset = 0;
        std::memcpy(&offset, object.keyOffsets + 4 * index, 4);
        agree(value, memberGetter(&object, &key, &found[0]));
        same(velonObjectGetValue(&object, &key, &found[0], &got), got, value);
        const CodResult results[] = {velonObjectGetType(&object, &key, &found[1], &type),
                                     velonObjectCheckType(&object, &key, wanted_, &found[2], &is[0]),
                                     velonObjectIsNull(&object, &key, &found[3], &is[1]),
                                     velonObjectContainsKey(&object, &key, &found[4]),
                                     velonObjectGetLazyValue(&object, &key, &found[5], &lazy),
                                     velonObjectFindKey(&object, &key, &found[6], &pos),
                                     velonObjectReadKey(&object, offset, &keyRead, &again),
                                     velonObjectCheckTypeAndGetValueIndex(&object, &key, value.type, &found[6], &payload)};
        VELON_REQUIRE(std::count(results, std::end(results), COD_SUCCESS) == 8 && std::count(found, std::end(found), true) == 7);
        VELON_REQUIRE(type == value.type && is[0] == (type == wanted_) && is[1] == (type == VELON_TYPE_NULL) && keyRead.str == key.str);
        VELON_REQUIRE(lazy.data.ptr == object.data.ptr + pos && again == pos && payload == pos + 1);
    }
    void elements(const VelonArray &array, bool strict, Value &out) {
        CodBool has[2] = {}, is[2] = {};
        VelonValue value, got;
        VelonLazyValue lazy[2] = {};
        VelonType type = VELON_TYPE_INVALID;
        VelonArrayIter iter = velonArrayIterNew(&array);
        for (CodInt32 i = 0; velonArrayIterHasNext(&iter) && left_ > 0; i++, left_--) {
            VelonArrayIter lazies = iter;
            const CodResult result = velonArrayIterNextValue(&iter, &has[0], &value);
            const CodResult lazyResult = velonArrayIterNextLazyValue(&lazies, &has[1], &lazy[0]);
            VELON_REQUIRE(velonArrayGetValue(&array, i, &got) == result && velonArrayGetLazyValue(&array, i, &lazy[1]) == lazyResult);
            if (result == COD_SUCCESS) {
                same(result, got, value);
                agree(value, elementGetter(&array, i));
                VELON_REQUIRE(velonArrayGetType(&array, i, &type) + velonArrayCheckType(&array, i, wanted_, &is[0]) == COD_SUCCESS);
                VELON_REQUIRE(velonArrayIsNull(&array, i, &is[1]) == COD_SUCCESS && is[1] == (type == VELON_TYPE_NULL));
                VELON_REQUIRE(is[0] == (type == wanted_));
                VELON_REQUIRE(type == value.type && has[0] && has[1] && lazy[0].valuePos == lazy[1].valuePos);
            }
            child(out, strict, result, value, lazyResult, lazy[0]);
            VELON_REQUIRE(iter.index == i + (result == COD_SUCCESS));
            iter.index = static_cast<CodUint16>(i + 1);
        }
        for (CodInt32 past : {static_cast<CodInt32>(array.data.aux), -1, 65536}) {
            codCleanError();
            VELON_REQUIRE(velonArrayGetValue(&array, past, &value) + elementGetter(&array, past)(VELON_TYPE_BOOL, &value) == 2 * COD_ERROR);
            VELON_REQUIRE(codGetLastErrorMsg() == "index out of bounds in velon: the len is " + std::to_string(array.data.aux) +
                                                      " but the index is " + std::to_string(past));
        }
        VELON_REQUIRE(left_ == 0 || (velonArrayIterNextValue(&iter, &has[0], &value) == COD_SUCCESS && !has[0]));
        VELON_REQUIRE(velonArrayGetElementCount(&array) == array.data.aux && velonArrayGetDataLength(&array) == array.data.len);
    }

    CodUint32 left_;  // values to visit yet
    VelonType wanted_ = VELON_TYPE_INVALID;
};

}  // namespace velon_model
