#include <vel_infra/string/ani_number_form.h>

#include <bit>
#include <cmath>
#include <limits>

#include "string/ani_text_number_internal.h"
#include "string/number_form_model.h"

namespace {

using cod::TextNumbers;
using collection_support::expectError;
using collection_support::Random;
using namespace number_form_model;
using namespace std::string_literals;

constexpr int kCases = COD_WITH_ASAN || COD_WITH_TSAN ? 10'000 : 100'000;
const std::string kNoForm = "illegal data format";

// The value that a call gives, byte by byte, or the message that it leaves; the value is then as it was.
template <typename Value, typename Call>
std::string valueOf(Call call) {
    Value value;
    std::memset(&value, 'x', sizeof(value));
    const std::string before = bytesOf(value);
    codCleanError();
    const bool isGiven = call(&value) == COD_SUCCESS;
    EXPECT_TRUE(isGiven || bytesOf(value) == before);
    return isGiven ? bytesOf(value) : codGetLastErrorMsg();
}
// The text that a call writes into a buffer of this size and nothing behind it, or its message.
template <typename Call>
std::string textOf(Call call, std::size_t room = 160) {
    std::vector<char> buf(room, '~');
    CodText dst = {buf.data(), 0, 0};
    codCleanError();
    const bool isGiven = call(&dst, static_cast<CodUint32>(room)) == COD_SUCCESS;
    EXPECT_TRUE(std::all_of(buf.begin() + dst.len, buf.end(), [](char c) { return c == '~'; }));
    return isGiven ? std::string(dst.str, dst.len) : codGetLastErrorMsg();
}

std::string numberBytes(const std::string &text) {
    return valueOf<CodNumber>([&](auto *n) { return codNumberFromText(Exact(text), n); });
}
CodNumber number(const std::string &text) {
    CodNumber n;
    std::memcpy(&n, numberBytes(text).data(), sizeof(n));
    return n;
}
std::string format(const CodNumber &n, const std::string &form) {
    return textOf([&](auto *dst, auto room) { return codNumberFormat(&n, Exact(form), dst, room); });
}
std::string parse(const std::string &text, const std::string &form) {
    return valueOf<CodNumber>([&](auto *n) { return codNumberParse(Exact(text), Exact(form), n); });
}
std::string refused(const std::string &text) {
    return "invalid string '" + text + "', reason: not of the number's form";
}

TEST(NumberForm, writesAsTheModelAndReadsBack) {
    Random random(1);
    for (int i = 0; i < kCases; i++) {
        const Form form = drawForm(random);
        const std::string kind = std::vector<std::string>{"99", "12", "90", "45", "49"}[random.below(5)], text = form.text();
        std::string digits(random.below(random.oneIn(3) ? 39 : 9), kind[0]);
        std::for_each(digits.begin() + !digits.empty(), digits.end(), [&](char &c) { c = kind[random.oneIn(3)]; });
        CodNumber n = number("0" + digits);
        n.sign = random.oneIn(2);
        n.exp = static_cast<CodInt16>((static_cast<int>(random.below(50)) - 40) * (random.oneIn(10) ? 20 : 1));
        const Written wanted = write(form, digits, n.exp, n.sign != 0);
        ASSERT_EQ(format(n, text), wanted.text) << text << " " << digits << "e" << n.exp;
        ASSERT_EQ(parse(wanted.text, text), wanted.plain.empty() ? refused(wanted.text) : numberBytes(wanted.plain)) << text;
    }
}

TEST(NumberForm, examples) {
    static const char *const kWritten[] = {
        "1234.5", "9,999.99", " 1,234.50", "5",      "9,999", "     5", "5",      "0,999",    " 0,005", "-5",    "$999",
        "  -$5",  "5",        "999S",      "  5+",   "5",     "999MI",  "  5 ",   "-5",       "999PR",  "  <5>", "0",
        "FM9.99", "0.",       "1",         "FM9.99", "1.",    "-0.5",   "99.99",  "  -.50",   "123",    "FM99",  "###",
        "9.996",  "9.99EEEE", " 1.00E+01", "-0.4",   "S9",    "+0",     "1e-130", "FM9EEEES", "1E-130+"};
    for (std::size_t i = 0; i < std::size(kWritten); i += 3) {
        EXPECT_EQ(format(number(kWritten[i]), kWritten[i + 1]), kWritten[i + 2]) << kWritten[i + 1];
    }
    // Those without a value are refused.
    static const char *const kRead[] = {
        "12",       "999.99",  "12",    " \t-12. ",  "999.99", "-12",  "+12",      "99",    "12", ".5",     "9.9",     "0.5",
        "1,234",    "9,999",   "1234",  "1234",      "9,999",  "1234", "12,34",    "9,999", "",   "1,234",  "9999",    "",
        ",123",     "9,999",   "",      "1,,234",    "9,999",  "",     "123,",     "9,999", "",   "$5",     "$9",      "5",
        "5",        "$9",      "5",     "$5",        "9",      "",     "-$5",      "$9",    "-5", "$-5",    "$9",      "",
        "-5",       "99MI",    "",      "5-",        "99MI",   "-5",   "5+",       "99MI",  "",   "5 -",    "99MI",    "",
        "5+",       "99S",     "5",     "5",         "S99",    "5",    "5-",       "S99",   "",   "<5>",    "99PR",    "-5",
        "<5",       "99PR",    "",      "5>",        "99PR",   "",     "-5",       "99PR",  "",   "<$5>",   "$99PR",   "-5",
        "123",      "99",      "",      "1.23",      "9.9",    "",     "012",      "99",    "",   "1.",     "9",       "",
        "",         "9",       "",      ".",         "9.9",    "",     "-",        "9",     "",   "- 1",    "9",       "",
        "#",        "9",       "",      "0.",        ".9",     "0",    "0.5",      ".9",    "",   "1",      ".9",      "",
        "1.5e3",    "9.9EEEE", "1.5e3", "12E-00001", "99EEEE", "1.2",  "7",        "9EEEE", "7",  "1E+",    "9EEEE",   "",
        "1E000001", "9EEEE",   "",      "1E1",       "9",      "",     "1e-99999", "9EEEE", "0",  "1E+01-", "9EEEEMI", "-1e1"};
    for (std::size_t i = 0; i < std::size(kRead); i += 3) {
        const std::string value = kRead[i + 2];
        EXPECT_EQ(parse(kRead[i], kRead[i + 1]), value.empty() ? refused(kRead[i]) : numberBytes(value)) << kRead[i];
    }
    EXPECT_EQ(parse("1E99999", "9EEEE"), "numeric overflow");
    const std::string most(63, '9');
    EXPECT_EQ(format(number("1"), most), std::string(63, ' ') + "1");
    for (const std::string &bad :
         {""s,      "S"s,    "FM"s,    "."s,     "$"s,       "EEEE"s, "MI"s,        "S9S"s,    "S9MI"s,    "9SMI"s,
          "9MIPR"s, "9FM"s,  "FMFM9"s, "$$9"s,   "$S9"s,     "9$"s,   "9..9"s,      "9D9."s,   ",9"s,      "9,"s,
          "9,,9"s,  "9,.9"s, "9.9,9"s, "9.9G9"s, "9,9EEEE"s, "9EEE"s, "9EEEEEEEE"s, "9EEEE9"s, "9SEEEE"s,  "9M"s,
          "9P"s,    "9 9"s,  " 9"s,    "9 "s,    "8"s,       "9x"s,   "9\xc3"s,     "9\0"s,    most + "0", most + ".0"}) {
        EXPECT_EQ(format(number("1"), bad), kNoForm) << bad;
        EXPECT_EQ(parse("1", bad), kNoForm) << bad;
    }
    CodNumber n = number("1");
    CodText nowhere = {nullptr, 1, 0};
    expectError(ERR_CMM_POINTER_NULL, "", [&] { return codNumberFormat(nullptr, Exact("9"), &nowhere, 1); });
    expectError(ERR_CMM_POINTER_NULL, "", [&] { return codNumberFormat(&n, Exact("9"), &nowhere, 1); });
    expectError(ERR_CMM_POINTER_NULL, "", [&] { return codNumberParse(&nowhere, Exact("9"), &n); });
}

// ---- The slots, in both widths. What is given to the narrow one and widened to the other gives the same. ----

template <typename Value>
std::string to(CodResult (*narrow)(const CodText *, Value *), CodResult (*wide)(const CodText *, Value *), const std::string &text) {
    const std::string value = valueOf<Value>([&](auto *out) { return narrow(Exact(text), out); });
    EXPECT_EQ(value, valueOf<Value>([&](auto *out) { return wide(Exact(widen(text)), out); })) << text;
    return value;
}
#define TO(slot, text) to(TextNumbers<false>::slot, TextNumbers<true>::slot, text)

// From a value, in buffers of every size.
template <typename Narrow, typename Wide>
std::string from(Narrow narrow, Wide wide) {
    const std::string text = textOf(narrow);
    const auto expectAt = [](auto slot, std::size_t room, const std::string &wanted) {
        const std::string sizes = std::to_string(wanted.size()) + ") is longer than the buffer size(" + std::to_string(room) + ")";
        EXPECT_EQ(textOf(slot, room), room < wanted.size() ? "the formatted string length(" + sizes : wanted);
    };
    for (std::size_t room = 0; room <= 2 * text.size(); room++) {
        expectAt(narrow, room, text);
        expectAt(wide, room, widen(text));
    }
    return text;
}
#define FROM(slot, value)                                                                  \
    from([&](auto *dst, auto room) { return TextNumbers<false>::slot(value, dst, room); }, \
         [&](auto *dst, auto room) { return TextNumbers<true>::slot(value, dst, room); })

// By a form, or its message.
template <typename Slot>
std::string byForm(Slot narrow, Slot wide, const std::string &value, const std::string &form) {
    const CodNumber n = number(value);
    const std::string text = textOf([&](auto *dst, auto room) { return narrow(&n, Exact(form), dst, room); });
    EXPECT_EQ(textOf([&](auto *dst, auto room) { return wide(&n, Exact(widen(form)), dst, room); }), text == kNoForm ? text : widen(text));
    return text;
}
#define BY_FORM(slot, value, form) byForm(TextNumbers<false>::slot, TextNumbers<true>::slot, value, form)

TEST(TextNumbers, areWritten) {
    EXPECT_EQ(FROM(fromInt, std::numeric_limits<CodInt64>::min()), "-9223372036854775808");
    EXPECT_EQ(FROM(fromUint, std::numeric_limits<CodUint64>::max()), "18446744073709551615");
    static const double kDoubles[] = {0.1, -0.0, 1e38, 1e-7, 1e-8, -1.5e300, -INFINITY, -NAN};
    static const char *const kTexts[] = {"0.1", "0", "1E+38", "0.0000001", "1E-08", "-1.5E+300", "-Infinity", "NaN"};
    for (std::size_t i = 0; i < std::size(kDoubles); i++) {
        EXPECT_EQ(FROM(fromDouble, kDoubles[i]), kTexts[i]);
    }
    EXPECT_EQ(FROM(fromFloat, 0.1f), "0.1");
    const CodNumber n = number("-1234.50");
    EXPECT_EQ(FROM(fromNumber, &n), "-1234.5");
    EXPECT_EQ(BY_FORM(fromNumberByForm, "-1234.5", "$9,999.99PR"), "<$1,234.50>");
    EXPECT_EQ(BY_FORM(fromNumberByForm, "-1234.5", "9.99EEEE"), "-1.23E+03");
    EXPECT_EQ(BY_FORM(fromNumberBySciForm, "-1234.5", "9.99eeee"), "-1.23E+03");
    EXPECT_EQ(BY_FORM(fromNumberBySciForm, "-1234.5", ""), "-1.2345E+03");
    for (const auto &bad : {"9999"s, "9EEEEMI"s, "EEEE"s, std::string(200, '9') + "EEEE"}) {
        EXPECT_EQ(BY_FORM(fromNumberBySciForm, "1", bad), kNoForm);
    }
    const auto oddForm = [&](auto *dst, auto room) { return TextNumbers<true>::fromNumberByForm(&n, Exact("9\0009"s), dst, room); };
    EXPECT_EQ(textOf(oddForm), kNoForm);
}

TEST(TextNumbers, floatsReadBack) {
    Random random(3);
    for (int i = 0; i < kCases / 20; i++) {
        const auto wide = std::bit_cast<CodDouble>(random.next());
        const auto narrow = std::bit_cast<CodFloat>(static_cast<CodUint32>(random.next()));
        ASSERT_EQ(TO(toDouble, FROM(fromDouble, wide)), bytesOf(std::isnan(wide) ? std::numeric_limits<CodDouble>::quiet_NaN() : wide));
        ASSERT_EQ(TO(toFloat, FROM(fromFloat, narrow)), bytesOf(std::isnan(narrow) ? std::numeric_limits<CodFloat>::quiet_NaN() : narrow));
    }
    EXPECT_EQ(TO(toDouble, " iNFINITY\t"), bytesOf(double{INFINITY}));
    EXPECT_EQ(TO(toFloat, "-infinity"), bytesOf(-INFINITY));
    for (const char *bad : {"inf", "+Infinity", "Infinit", "nan0", "-NaN", "Infinity x"}) {
        EXPECT_EQ(TO(toDouble, bad), "invalid string '"s + bad + "', reason: not a valid number");
    }
    EXPECT_EQ(TO(toDouble, "1e309"), "type convert error : not a valid number");
    EXPECT_EQ(TO(toFloat, "-3.5e38"), "type convert error : not a valid number");
}

TEST(TextNumbers, areReadAsNumberReadsThem) {
    Random random(4);
    for (int i = 0; i < kCases / 2; i++) {
        const std::string text = drawNumber(random), value = numberBytes(text);
        ASSERT_EQ(TO(toNumber, text), value) << text;
        // An exponent beyond those of NUMBER makes a difference.
        if (value.size() == sizeof(CodNumber) && text.find_first_of("eE") == text.npos && text.size() < 100) {
            const CodNumber n = number(text);
            ASSERT_EQ(TO(toDouble, text), valueOf<CodDouble>([&](auto *d) { return codNumberToDouble(&n, d); })) << text;
        }
        // The longest beginning that is a number.
        std::size_t size = text.size();
        while (size > 0 && numberBytes(text.substr(0, size)).starts_with("invalid")) {
            size--;
        }
        ASSERT_EQ(TO(toTruncNumber, text), numberBytes(size > 0 ? text.substr(0, size) : "0")) << text;
    }
    const std::string blanks(100'000, ' '), zeros(100'000, '0');
    EXPECT_EQ(TO(toNumber, blanks + "-" + zeros + "1.5" + blanks), numberBytes("-1.5"));
    EXPECT_EQ(TO(toNumber, "0." + zeros + "25e99999"), numberBytes("0.025"));
    EXPECT_EQ(TO(toNumber, "5" + zeros + "e-100000"), numberBytes("5" + std::string(37, '0') + "e-37"));
    EXPECT_EQ(TO(toBool, blanks + "On" + blanks), bytesOf(true));
    // Units that are not ASCII, and half a unit.
    for (const std::string &bytes : {"1\0002"s, "1\0001\001"s, "1\000\xb1\000"s, "1\000\000"s}) {
        const auto read = [&](auto slot) { return [&, slot](auto *out) { return slot(Exact(bytes), out); }; };
        EXPECT_EQ(valueOf<CodNumber>(read(TextNumbers<true>::toNumber)), "invalid string '1?', reason: not a valid number");
        EXPECT_EQ(valueOf<CodNumber>(read(TextNumbers<true>::toTruncNumber)), numberBytes("1"));
        EXPECT_EQ(valueOf<CodBool>(read(TextNumbers<true>::toBool)), "invalid boolean value \"1?\"");
    }
    for (const std::string &text : {"-1,234.5"s, "12,34"s, blanks + "7" + blanks, "7" + blanks + "x", zeros, ""s}) {
        for (const std::string form : {"9,999.9", "9x"}) {
            const auto narrow = [&](auto *n) { return TextNumbers<false>::toNumberByForm(Exact(text), Exact(form), n); };
            const auto wide = [&](auto *n) { return TextNumbers<true>::toNumberByForm(Exact(widen(text)), Exact(widen(form)), n); };
            EXPECT_EQ(valueOf<CodNumber>(narrow), parse(text, form));
            EXPECT_EQ(valueOf<CodNumber>(wide), parse(text, form));
        }
    }
}

TEST(TextNumbers, integersAndBooleans) {
    const std::string most = "value is larger than UNSIGNED ";
    EXPECT_EQ(TO(toUint64, "18446744073709551615.4"), bytesOf(~CodUint64{0}));
    EXPECT_EQ(TO(toUint64, "18446744073709551615.5"), most + "BIGINT allowed");
    EXPECT_EQ(TO(toUint32, "4294967295"), bytesOf(~CodUint32{0}));
    EXPECT_EQ(TO(toUint32, "4294967296"), most + "INTEGER allowed");
    EXPECT_EQ(TO(toUint16, "65535"), bytesOf(CodUint16{65535}));
    EXPECT_EQ(TO(toUint16, "65536"), most + "SMALLINT allowed");
    EXPECT_EQ(TO(toUint8, "2.55e2"), bytesOf(CodUint8{255}));
    EXPECT_EQ(TO(toUint8, "255.5"), most + "TINYINT allowed");
    EXPECT_EQ(TO(toUint8, "-0.4"), bytesOf(CodUint8{0}));
    EXPECT_EQ(TO(toUint8, "-0.5"), "value is less than UNSIGNED TINYINT allowed");
    const char *const words[] = {"true", "FALSE", "T", "f", "Yes", "nO", "y", "N", "ON", "off", " 1 ", " 0"};
    for (std::size_t i = 0; i < std::size(words); i++) {
        EXPECT_EQ(TO(toBool, words[i]), bytesOf(i % 2 == 0)) << words[i];
    }
    for (const char *bad : {"", " ", "tr", "2", "00", "\t1", "true false"}) {
        EXPECT_EQ(TO(toBool, bad), "invalid boolean value \""s + bad + "\"");
    }
    EXPECT_EQ(TO(toBool, std::string(200, 'x')), "invalid boolean value \"" + std::string(124, 'x') + "...\"");
}

}  // namespace
