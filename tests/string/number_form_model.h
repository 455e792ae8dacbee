#pragma once

// Texts of numbers: what tests draw and give, and forms by strings of digits, slow, and as the contract words it.

#include <algorithm>
#include <cstdlib>
#include <string>

#include <vel_infra/base/cod_types.h>

#include "support/collection_support.h"

namespace number_form_model {

// Exactly the bytes, which the address sanitizer watches.
struct Exact {
    Exact(const std::string &bytes) : memory(bytes.begin(), bytes.end()), text{memory.data(), static_cast<CodUint32>(memory.size()), 0} {}
    Exact(const Exact &) = delete;
    operator const CodText *() const {
        return &text;
    }
    std::vector<char> memory;
    CodText text;
};

inline std::string widen(const std::string &text) {
    std::string wide;
    std::for_each(text.begin(), text.end(), [&](char c) { wide += {c, '\0'}; });
    return wide;
}

template <typename Value>
std::string bytesOf(const Value &value) {
    return std::string(reinterpret_cast<const char *>(&value), sizeof(value));
}

// Pieces of a number, any of them missing or long, often spoilt.
inline std::string drawNumber(collection_support::Random &random) {
    const auto row = [&](const char *kind, CodUint32 most) {
        std::string text(random.below(random.oneIn(8) ? most : 4), '0');
        std::for_each(text.begin(), text.end(), [&](char &c) { c = kind[random.below(4)]; });
        return text;
    };
    const char *const signs[] = {"", "-", "+"}, *const marks[] = {"", "", "e", "E-", "e+"};
    std::string text = row(" \t  ", 300) + signs[random.below(3)] + row("0000", 200) + row("0059", 80) + (random.oneIn(2) ? "." : "") +
                       row("0000", 200) + row("0059", 80) + marks[random.below(5)] +
                       std::to_string(random.below(random.oneIn(4) ? 400 : 9));
    if (random.oneIn(3)) {
        text.insert(random.below(static_cast<CodUint32>(text.size()) + 1), 1, " +-.eEx\t?\0"[random.below(10)]);
    }
    return text + row("    ", 300);
}

// ---- Forms ----

struct Form {
    std::string tight, first, dollar, integer, point, fraction, exponent, last;

    std::string text() const {
        return tight + first + dollar + integer + point + fraction + exponent + last;
    }
};

inline Form drawForm(collection_support::Random &random) {
    const auto oneOf = [&](const std::vector<const char *> &words) { return words[random.below(static_cast<CodUint32>(words.size()))]; };
    const auto digits = [&](CodUint32 most) {
        std::string row(random.below(random.oneIn(8) ? most : 8), '9');
        std::for_each(row.begin(), row.end(), [&](char &c) { c = "0999"[random.below(4)]; });
        return row;
    };
    Form form = {oneOf({"FM", "", ""}), oneOf({"S", "", ""}), oneOf({"$", "", ""}),        digits(33),
                 oneOf({".", "d", ""}), digits(31),           oneOf({"eEEE", "", "", ""}), oneOf({"s", "MI", "pr", ""})};
    form.fraction.resize(form.point.empty() ? 0 : form.fraction.size());
    form.integer += form.integer.empty() && form.fraction.empty() ? "9" : "";
    form.last = form.first.empty() ? form.last : "";
    for (std::size_t at = form.integer.size(); form.exponent.empty() && at-- > 1;) {
        form.integer.insert(at, oneOf({",", "G", "", "", "", ""}));
    }
    return form;
}

// The digits of a value down to that of 10^place, half away from zero; none of zero.
inline std::string rounded(std::string digits, int exp, int place) {
    digits = std::string(static_cast<std::size_t>(std::max(1, place - exp + 1)), '0') + digits;
    digits.append(static_cast<std::size_t>(std::max(0, exp - place)), '0');
    const std::size_t kept = digits.size() - static_cast<std::size_t>(std::max(0, place - exp));
    std::size_t last = kept - 1;
    if (kept < digits.size() && digits[kept] >= '5') {
        for (; digits[last] == '9'; last--) {
            digits[last] = '0';
        }
        digits[last]++;
    }
    return digits.substr(0, kept).erase(0, std::min(digits.find_first_not_of('0'), kept));
}

struct Written {
    std::string text;
    std::string plain;  // the number that it stands for; empty: none
};

// digits * 10^valueExp, without zeros before the digits.
inline Written write(const Form &form, const std::string &value, int valueExp, bool isBelowZero) {
    const std::size_t behind = form.fraction.size();
    const bool isScientific = !form.exponent.empty(), isBracketed = form.last == "pr", isFirst = isBracketed || form.last.empty();
    int exp = isScientific && !value.empty() ? valueExp + static_cast<int>(value.size()) - 1 : 0;
    std::string digits = rounded(value, valueExp, exp - static_cast<int>(behind));
    if (isScientific && digits.size() > behind + 1) {
        digits.pop_back();
        exp++;
    }
    const bool isMinus = isBelowZero && !digits.empty(), isPlus = form.first + form.last == "S" || form.last == "s";
    const std::string signs = isBracketed ? (isMinus ? "<>" : "  ") : isMinus ? "-" : isPlus ? "+" : " ";
    std::string columns = isScientific ? "0" : form.integer;
    const auto places = columns.size() - static_cast<std::size_t>(
                                             std::count_if(columns.begin(), columns.end(), [](char c) { return c == ',' || c == 'G'; }));
    digits.insert(0, places + behind - std::min(digits.size(), places + behind), '0');
    if (digits.size() > places + behind) {
        return {std::string((form.dollar + form.integer + form.point + form.fraction + signs).size(), '#'), ""};
    }
    std::string fraction = digits.substr(places);
    while (!form.tight.empty() && fraction.size() > form.fraction.rfind('0') + 1 && fraction.back() == '0') {
        fraction.pop_back();
    }
    // All digits and commas; then what stands before the first digit of them goes.
    const std::size_t firstZero = std::min(columns.find('0'), columns.size());
    std::size_t next = 0;
    std::for_each(columns.begin(), columns.end(), [&](char &c) { c = c == ',' || c == 'G' ? ',' : digits[next++]; });
    const std::size_t blanks = std::min(columns.find_first_not_of("0,"), firstZero);
    columns.replace(0, blanks, blanks, ' ');
    if (blanks == columns.size() && fraction.empty()) {
        columns.replace(columns.size() - !columns.empty(), 1, "0");
    }
    const std::string magnitude = std::to_string(std::abs(exp)), mark = (exp < 0 ? "E-" : "E+") + std::string(magnitude.size() < 2, '0');
    const std::string exponent = isScientific ? mark + magnitude : "";
    columns.insert(std::min(columns.find_first_not_of(' '), columns.size()), signs.substr(0, isFirst) + form.dollar);
    std::string text = columns + (form.point.empty() ? "" : ".") + fraction + exponent + signs.substr(isFirst);
    text.erase(form.tight.empty() ? text.end() : std::remove(text.begin(), text.end(), ' '), text.end());
    return {text, (isMinus ? "-0" : "0") + digits.substr(0, places) + "." + fraction + exponent};
}

}  // namespace number_form_model
