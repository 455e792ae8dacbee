#include <vel_infra/number/ani_number_key.h>

#include "number/number_operands.h"

namespace {

using namespace number_model;

// What a writer of bytes leaves in a buffer of its size.
template <typename Write, typename Item>
CodResult bytesOf(Write write, Item *item, std::size_t room, ByteString *out) {
    out->resize(room);
    CodBytes bytes = {out->data(), 0, 0};
    const CodResult result = write(item, &bytes);
    return out->resize(result == COD_SUCCESS ? bytes.size : 0), result;
}

CodBytes view(const ByteString &bytes) {
    return {const_cast<CodUint8 *>(bytes.data()), static_cast<CodUint32>(bytes.size()), 0};
}

// Two numbers and a form of each, which may be raw, have high zero bytes or be any bytes; the first number is often a small one.
struct Forms {
    explicit Forms(Operands &operands) {
        std::tie(n1, n2) = operands.pair();
        for (auto [n, form] : {std::pair(&n1, &form1), std::pair(&n2, &form2)}) {
            const CodUint32 kind = operands.below(10);
            form->resize(20);
            std::memcpy(form->data(), n, 20);
            if (kind == 9) {
                *form = operands.bytes(operands.below(22));
            } else if (kind < 8 && std::abs(n->exp) < 256) {
                *form = encode(*n);
                form->resize(std::max(form->size(), std::size_t{kind * 2}));
            }
        }
        const CodNumber small = make(operands.next() >> operands.between(40, 63), operands.oneIn(8), operands.between(-1, 6));
        n1 = operands.oneIn(4) ? small : n1;
    }
    friend std::ostream &operator<<(std::ostream &out, const Forms &c) {
        return out << c.n1 << " and " << c.n2 << ", " << testing::PrintToString(c.form1) << " and " << testing::PrintToString(c.form2);
    }
    CodResult decodeFirst(CodNumber *out) const {
        const CodBytes bytes = view(form1);
        return codDecodeNumber(&bytes, out);
    }
    CodInt32 order(decltype(&codNumberDataCompare) compareForms) const {
        const CodBytes bytes1 = view(form1), bytes2 = view(form2);
        return compareForms(&bytes1, &bytes2);
    }

    CodNumber n1, n2;
    ByteString form1, form2;
};

int orderOf(const Forms &c) {
    auto read = [](const ByteString &form) { return form.empty() || form.size() == 19 || form.size() > 20 ? CodNumber() : decode(form); };
    return compare(read(c.form1), read(c.form2));
}

CodResult canonical(CodNumber *n, std::pair<CodNumber, ByteString> *out) {
    const CodResult result = bytesOf(codNumberEncode, n, COD_NUMBER_STORED_SIZE, &out->second);
    return out->first = *n, result;
}

TEST(NumberData, storedFormsEqualTheModelAndAnyFormsCompareByValue) {
    SAME(Forms, 4, bytesOf(codEncodeNumber, &c.n1, COD_NUMBER_STORED_SIZE, out), encode(c.n1));
    SAME(Forms, 4, canonical(&c.n1, out), std::pair(CodNumber(stripped(c.n1)), encode(stripped(c.n1))));
    SAME(Forms, 4, c.decodeFirst(out), decode(c.form1));
    SAME(Forms, 1, (*out = c.order(codNumberDataCompare), COD_SUCCESS), orderOf(c));
    SAME(Forms, 4, (*out = c.order(std::min(c.form1.size(), c.form2.size()) < 3 ? cmpSimpleNumberData : codNumberDataCompare), COD_SUCCESS),
         orderOf(c));
}

// ---- Sort keys ----

std::size_t keySize(const Number &given) {
    const Number n = stripped(given);
    const int count = digits(n.value), magnitude = n.exp + count;
    const bool isResult = count == 0 || (count <= 38 && magnitude <= 126 && magnitude >= -129);
    return isResult ? static_cast<std::size_t>(count == 0 ? 1 : 2 + (count + 1) / 2) : throw kOverflow;
}

CodResult toKey(const CodNumber &n, ByteString *key) {
    return bytesOf(codNumberToSortKey, &n, COD_NUMBER_KEY_SIZE, key);
}

TEST(NumberKey, readsBackAndHasTheOrderOfValuesWhateverFollows) {
    Operands operands(23);
    for (CodUint64 i = 0; i < cases(4); i++) {
        auto [n1, n2] = operands.pair();
        ByteString key1, key2;
        for (auto [n, key] : {std::pair(&n1, &key1), std::pair(&n2, &key2)}) {
            auto call = [n = n, key = key](std::size_t *size) {
                const CodResult result = toKey(*n, key);
                return *size = key->size(), result;
            };
            ASSERT_TRUE(agree([&, n = n] { return keySize(*n); }, call)) << *n;
            *n = key->empty() ? CodNumber() : *n;
            ASSERT_EQ(toKey(*n, key), COD_SUCCESS);
            CodBytes bytes = view(*key);
            ASSERT_TRUE(agree([&, n = n] { return stripped(*n); }, [&](CodNumber *out) { return codNumberFromSortKey(&bytes, out); }))
                << *n;
            const CodUint32 whole = bytes.size;
            key->resize(30, static_cast<CodUint8>(operands.next()));
            bytes = view(*key);
            ASSERT_EQ(codNumberSortKeySize(&bytes), whole) << *n;
            bytes.size = operands.below(whole);
            ASSERT_EQ(codNumberSortKeySize(&bytes), 0u) << *n;
        }
        const int order = compare(n1, n2);
        ASSERT_TRUE(order == 0 || (order > 0) == (key1 > key2)) << n1 << " and " << n2;
        toKey(n1, &key1);
        toKey(n2, &key2);
        ASSERT_EQ(order == 0, key1 == key2) << n1 << " and " << n2;
    }
}

TEST(NumberKey, readsNothingButWhatIsWritten) {
    Operands operands(24);
    for (CodUint64 i = 0; i < cases(4); i++) {
        CodNumber n = operands.number();
        ByteString bytes = operands.bytes(operands.below(23)), again;
        if (i % 4 != 0 && toKey(n, &again) == COD_SUCCESS) {
            bytes = again;
            (i % 2 == 0 ? bytes.back() : bytes[operands.below(static_cast<CodUint32>(bytes.size()))]) ^=
                static_cast<CodUint8>(1 << operands.below(5));
        }
        codCleanError();
        const CodBytes key = view(bytes);
        if (codNumberFromSortKey(&key, &n) != COD_SUCCESS) {
            ASSERT_EQ(codGetErrorCode(), ERR_CMM_BYTES_ERROR);
            continue;
        }
        ASSERT_EQ(toKey(n, &again), COD_SUCCESS) << n;
        ASSERT_EQ(again, bytes) << n;
        ASSERT_EQ(codNumberSortKeySize(&key), key.size) << n;
    }
}

TEST(NumberData, edges) {
    const std::pair<CodNumber, ByteString> rows[] = {
        {make(0, true, 300), {0}},           {make(255, false, 0), {255}},    {make(256, false, 0), {0, 1}},
        {make(65535, false, 0), {255, 255}}, {make(1, true, 0), {1, 0, 1}},   {make(65536, false, 0), {0, 0, 0, 0, 1}},
        {make(3, false, 2), {44, 1}},        {make(5, false, -1), {2, 1, 5}}, {make(42950, false, 5), {192, 127}},
    };
    for (const auto &row : rows) {
        ByteString form;
        ASSERT_EQ(bytesOf(codEncodeNumber, &row.first, COD_NUMBER_STORED_SIZE, &form), COD_SUCCESS);
        EXPECT_EQ(form, row.second);
    }
}

}  // namespace
