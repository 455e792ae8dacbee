#include <vel_infra/number/ani_number.h>

#include "number/number_operands.h"

namespace {

using namespace number_model;

TEST(NumberText, isThatOfTheModelFillsItsRoomAndReadsBack) {
    Operands operands(31);
    for (CodUint64 i = 0; i < cases(10); i++) {
        const CodNumber n = operands.number();
        const std::string text = toText(n), sci = sciText(n), &written = i % 2 == 0 ? text : sci;
        auto roomOf = [&](const std::string &fitted) { return i % 3 == 0 ? COD_NUMBER_TEXT_SIZE : fitted.size() + i % 3 - 1; };
        ASSERT_TRUE(writes(text, roomOf(text), [&](auto *out, auto room) { return codNumber2Text(&n, out, room); })) << n;
        ASSERT_TRUE(writes(text, roomOf(text), [&](auto *out, auto room) { return codNumber2Str(&n, out->str, room); })) << n;
        ASSERT_TRUE(writes(sci, roomOf(sci), [&](auto *out, auto room) { return codNumber2SciText(&n, out, room); })) << n;
        auto readBack = [&](int *order) {
            CodNumber back;
            const CodResult result = codNumberFromStr(written.c_str(), &back);
            return *order = result == COD_SUCCESS ? compare(back, inRange(n)) : 0, result;
        };
        ASSERT_TRUE(digits(stripped(n).value) > 38 || agree([&] { return inRange(n), 0; }, readBack)) << n;
    }
}

// Pieces of the grammar, any of them missing now and then; every fourth text is spoilt.
struct Spelling {
    explicit Spelling(Operands &operands) {
        auto one = [&](std::initializer_list<std::string> kinds) {
            return kinds.begin()[operands.below(static_cast<CodUint32>(kinds.size()))];
        };
        auto row = [&] { return std::string(operands.below(60), "0959"[operands.below(4)]); };
        auto any = [&] {
            return one({"", row(), std::to_string(operands.next()), std::to_string(operands.next()) + std::to_string(operands.next())});
        };
        const std::string exp = std::to_string(operands.oneIn(4) ? operands.next() >> operands.below(64) : operands.below(200));
        text = one({"", " ", "   "}) + one({"", "-", "+"}) + any() + any() + one({"", "."}) + any() + any() +
               one({"", "e" + exp, "E-" + exp, "e+" + exp});
        if (operands.oneIn(4)) {
            text.insert(operands.below(static_cast<CodUint32>(text.size()) + 1), 1, " +-.eEx\t\n\0"[operands.below(10)]);
        }
        text += one({"", "", "  "});
    }
    friend std::ostream &operator<<(std::ostream &out, const Spelling &c) {
        return out << c.text;
    }
    CodResult readExact(CodNumber *n) const {
        std::vector<char> exact(text.begin(), text.end());
        const CodText borrowed = {exact.data(), static_cast<CodUint32>(exact.size()), 0};
        return codNumberFromText(&borrowed, n);
    }

    std::string text;
};

TEST(NumberText, readingEqualsTheModel) {
    SAME(Spelling, 40, c.readExact(out), fromText(c.text));
    SAME(Spelling, 40, codNumberFromStr(c.text.c_str(), out), fromText(c.text.c_str()));
}

}  // namespace
