#pragma once

// What the tests of NUMBER share: operands, and the check of a call against its rule.

#include <array>
#include <cstdlib>

#include "number/number_model.h"
#include "support/collection_support.h"

inline bool operator==(const CodNumber &n1, const CodNumber &n2) {
    return std::memcmp(&n1, &n2, sizeof(n1)) == 0;
}
inline std::ostream &operator<<(std::ostream &out, const CodNumber &n) {
    return out << number_model::Number(n).value << "e" << n.exp << " sign " << int{n.sign} << " unused " << int{n.unused};
}

namespace number_model {

using Wide = unsigned __int128;

inline CodNumber make(Wide value, bool negative, int exp) {
    const CodLargeInt words = {{static_cast<CodUint64>(value), static_cast<CodUint64>(value >> 64)}};
    return {words, negative, 0, static_cast<CodInt16>(std::clamp(exp, -32768, 32767))};
}

struct Operands : collection_support::Random {
    using Random::Random;

    int between(int low, int high) {
        return low + static_cast<int>(below(static_cast<CodUint32>(high - low + 1)));
    }
    static Wide ten(int exp) {
        static const std::array<Wide, 39> table = [] {
            std::array<Wide, 39> list = {1};
            std::transform(list.begin(), list.end() - 1, list.begin() + 1, [](Wide power) { return 10 * power; });
            return list;
        }();
        return table[static_cast<std::size_t>(exp)];
    }

    // 0 to 38 digits, rarely 39: any, and dense around powers of ten and of two, halves, rows of nines and of zeros.
    Wide coefficient() {
        const Wide any = Wide{next()} << 64 | next(), power = ten(between(0, 38));
        switch (below(12)) {
            case 0:
                return below(12);
            case 1:
                return (oneIn(2) ? power : power / 2) + below(3) - (power > 1);
            case 2:
                return power - std::min<Wide>(power, below(1000));
            case 3:
                return any % ten(between(0, 19)) * ten(between(0, 18));
            case 4:
                return (oneIn(4) ? ~Wide{0} : any) >> below(128);
            default:
                return any % power;
        }
    }

    // Around zero, over the range, around its ends, and beyond them.
    CodNumber number() {
        CodNumber n = make(coefficient(), oneIn(2), between(-40, 40));
        const int count = digits(Number(n).value);
        const int exps[] = {-between(0, count), between(-168, 126), 126 - count + between(-2, 2), -129 - count + between(-2, 2),
                            between(-255, 255)};
        n.exp = static_cast<CodInt16>(oneIn(64) ? between(-32768, 32767) : oneIn(2) ? n.exp : exps[below(5)]);
        return n;
    }

    // Two, one of them with odd sign bytes now and then, whose difference, product, quotient or exponents lie where rules change; among
    // them two forms of one value and its neighbour.
    std::pair<CodNumber, CodNumber> pair() {
        const CodNumber n1 = number();
        CodNumber n2 = number();
        const int digits1 = digits(Number(n1).value), digits2 = digits(Number(n2).value), limit = (oneIn(2) ? 126 : -129) + between(-2, 2);
        const int exps[] = {n1.exp + between(-1, 1), n1.exp + between(36, 41), n1.exp + between(-255, 255),
                            limit - n1.exp - digits1 - digits2, n1.exp + digits1 - digits2 - limit};
        if (const CodUint32 kind = below(7); kind < 5) {
            n2.exp = static_cast<CodInt16>(std::clamp(exps[kind], -32768, 32767));
        } else if (kind == 5) {
            const int shift = between(0, std::max(0, 38 - digits1));
            n2 = Number(Number(n1).value * power(shift) + oneIn(2), n1.sign != 0, std::max(n1.exp - shift, -32768));
        }
        n2.sign = oneIn(16) ? static_cast<CodInt8>(n2.sign * between(-128, -1)) : n2.sign;
        n2.unused = oneIn(16);
        return oneIn(2) ? std::pair(n1, n2) : std::pair(n2, n1);
    }
};

// The number of cases of the chief operations, VEL_INFRA_TEST_CASES where that is set; others take a part of it.
inline CodUint64 cases(CodUint64 part = 1) {
#if defined(NDEBUG) && !COD_WITH_ASAN && !defined(__SANITIZE_THREAD__)
    static const CodUint64 usual = 1'000'000;
#else
    static const CodUint64 usual = 100'000;
#endif
    static const char *wanted = std::getenv("VEL_INFRA_TEST_CASES");
    static const CodUint64 count = wanted != nullptr ? std::strtoull(wanted, nullptr, 10) : usual;
    return count / part + 1;
}

// The call gives what the rule gives and leaves no error, or fails as the rule does.
template <typename Rule, typename Call>
testing::AssertionResult agree(Rule rule, Call call) {
    using Given = decltype(rule());
    std::conditional_t<std::is_same_v<Given, Number>, CodNumber, Given> wanted = {}, got = {};
    Failure failure;
    try {
        wanted = rule();
    } catch (const Failure &thrown) {
        failure = thrown;
    }
    codCleanError();
    const CodResult result = call(&got);
    const std::string_view text = result == COD_SUCCESS ? "" : codGetLastErrorMsg();
    if (result == (failure.code == 0 ? COD_SUCCESS : COD_ERROR) && codGetErrorStackDepth() == (failure.code != 0) &&
        codGetErrorCode() == failure.code && text.starts_with(failure.text) && (failure.code != 0 || wanted == got)) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "wanted " << (failure.code == 0 ? testing::PrintToString(wanted) : failure.text) << ", got "
                                       << (result == COD_SUCCESS ? testing::PrintToString(got) : codGetErrorMsg2());
}

template <typename Case, typename Call, typename Rule>
void expectSame(const char *name, CodUint64 part, Call call, Rule rule) {
    Operands operands(1);
    for (CodUint64 i = 0; i < cases(part); i++) {
        Case c(operands);
        const Case before = c;
        ASSERT_TRUE(agree([&] { return rule(before); }, [&](auto *out) { return call(c, out); })) << name << ": " << before;
    }
}

// The call, which writes *out, is the same as the rule for every case c that Case draws from the operands.
#define SAME(Case, part, call, rule) \
    expectSame<Case>(                \
        #call, part, [](Case &c, auto *out) -> CodResult { return call; }, [](const Case &c) { return rule; })

// The call writes this text and its terminator into a buffer of this size, or fails and leaves it alone when it is too small.
template <typename Call>
testing::AssertionResult writes(const std::string &wanted, std::size_t room, Call call) {
    std::vector<char> buffer(room, '#');
    CodText out = {buffer.data(), static_cast<CodUint32>(wanted.size()), 0};
    const bool fits = room > wanted.size();
    auto rule = [&] { return fits ? wanted : throw Failure{ERR_CMM_FORMAT_STR_OVERFLOW, "the formatted string length("}; };
    auto write = [&](std::string *text) {
        const CodResult result = call(&out, static_cast<CodUint32>(room));
        return *text = {out.str, out.len}, result;
    };
    const testing::AssertionResult agreed = agree(rule, write);
    const bool isSound = fits ? buffer[wanted.size()] == 0 : buffer == std::vector<char>(room, '#');
    return agreed && !isSound ? testing::AssertionFailure() << "no terminator, or a text in too small a room" : agreed;
}

}  // namespace number_model
