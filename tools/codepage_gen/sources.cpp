#include "sources.h"

#include <fstream>
#include <functional>
#include <stdexcept>

namespace codepage_gen {

namespace {

void forEachLine(const std::string &path, const std::function<void(const std::string &)> &take) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    for (std::string line; std::getline(file, line);) {
        take(line);
    }
}

CodUint32 hexAt(const std::string &text, std::size_t at) {
    return static_cast<CodUint32>(std::stoul(text.substr(at), nullptr, 16));
}

std::vector<std::string> split(const std::string &line, char delimiter) {
    std::vector<std::string> fields(1);
    for (const char c : line) {
        c == delimiter ? fields.emplace_back() : fields.back() += c;
    }
    return fields;
}

Elements notEmpty(Elements elements, const std::string &path) {
    if (elements.empty()) {
        throw std::runtime_error("nothing found in " + path);
    }
    return elements;
}

}  // namespace

// <U00E9>     /xa8/xa6         LATIN SMALL LETTER E WITH ACUTE
// <U00020000>..<U00020003> /x95/x32/x82/x36 <CJK>
// The codes of a range differ in their last byte.
Elements readCharmap(const std::string &path) {
    Elements codes;
    bool isBehind = false;  // widths follow
    forEachLine(path, [&](const std::string &line) {
        const std::size_t bytes = line.find("/x");
        isBehind |= line == "END CHARMAP";
        if (isBehind || !line.starts_with("<U") || bytes == std::string::npos) {
            return;
        }
        CodUint32 code = 0;
        for (std::size_t at = bytes; line.compare(at, 2, "/x") == 0; at += 4) {
            code = code << 8 | hexAt(line.substr(at + 2, 2), 0);
        }
        const std::size_t range = line.find("..<U");
        const CodUint32 last = hexAt(line, range < bytes ? range + 4 : 2);
        for (CodUint32 codePoint = hexAt(line, 2); codePoint <= last; codePoint++) {
            codes[code++] = codePoint;
        }
    });
    return notEmpty(codes, path);
}

// Fields 12 and 13 are the simple upper and lower case.
CaseMappings readUnicodeData(const std::string &path) {
    CaseMappings mappings;
    forEachLine(path, [&](const std::string &line) {
        const std::vector<std::string> fields = split(line, ';');
        if (fields.size() != 15) {
            throw std::runtime_error("a line of " + path + " has not 15 fields");
        }
        const CodUint32 codePoint = hexAt(fields[0], 0);
        if (!fields[12].empty() || !fields[13].empty()) {
            mappings.upper[codePoint] = fields[12].empty() ? codePoint : hexAt(fields[12], 0);
            mappings.lower[codePoint] = fields[13].empty() ? codePoint : hexAt(fields[13], 0);
        }
    });
    notEmpty(mappings.lower, path);
    return mappings;
}

// 4E00..9FFF;W     # Lo [20992] CJK UNIFIED IDEOGRAPH-4E00..CJK UNIFIED IDEOGRAPH-9FFF
Elements readWidths(const std::string &path) {
    Elements widths;
    forEachLine(path, [&](const std::string &line) {
        const std::size_t value = line.find(';');
        if (line.starts_with('#') || value == std::string::npos || (line[value + 1] != 'W' && line[value + 1] != 'F')) {
            return;
        }
        const std::size_t range = line.find("..");
        const CodUint32 last = hexAt(line, range < value ? range + 2 : 0);
        for (CodUint32 codePoint = hexAt(line, 0); codePoint <= last; codePoint++) {
            widths[codePoint] = 2;
        }
    });
    return notEmpty(widths, path);
}

namespace {

// The code points of well-formed UTF-8, up to the end of the text or a blank.
std::u32string decoded(const std::string &text) {
    std::u32string codePoints;
    for (std::size_t at = 0; at < text.size() && text[at] != ' ';) {
        const auto lead = static_cast<CodUint8>(text[at]);
        const CodUint32 length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        CodUint32 codePoint = length == 1 ? lead : lead & (0x7Fu >> length);
        for (CodUint32 i = 1; i < length; i++) {
            codePoint = codePoint << 6 | (static_cast<CodUint8>(text.at(at + i)) & 0x3F);
        }
        codePoints += static_cast<char32_t>(codePoint);
        at += length;
    }
    return codePoints;
}

// What the rules of the collation put directly behind each character.
struct PinyinRules {
    std::u32string order;                          // <*XYZ: each behind the one before
    std::map<char32_t, std::u32string> variants;   // &X<<<Y, the one that is given last first, as the rules mean it
    std::map<char32_t, std::u32string> compounds;  // &X<YZ/Z: Y behind X, where Z follows it
};

void addReset(const std::string &rule, PinyinRules *rules) {
    const std::size_t relation = rule.find('<');
    const std::u32string anchor = decoded(rule.substr(1, relation - 1));
    if (anchor.size() != 1) {
        return;
    }
    if (rule.compare(relation, 3, "<<<") == 0) {
        const std::u32string variant = decoded(rule.substr(relation + 3));
        if (variant.size() == 1) {
            rules->variants[anchor[0]].insert(0, variant);
        }
        return;
    }
    const std::u32string pair = decoded(rule.substr(relation + 1));
    if (pair.size() != 4 || pair[2] != U'/' || pair[1] != pair[3]) {
        throw std::runtime_error("a rule of the pinyin collation is not understood: " + rule);
    }
    rules->compounds[anchor[0]] = pair.substr(0, 2);
}

PinyinRules readRules(const std::string &path) {
    PinyinRules rules;
    bool isPinyin = false;
    forEachLine(path, [&](const std::string &line) {
        const std::size_t begin = line.find_first_not_of(" \t");
        const std::string rule = begin == std::string::npos ? "" : line.substr(begin);
        if (rule.starts_with("<collation ")) {
            isPinyin = rule == "<collation type='pinyin'>";
        } else if (isPinyin && rule.starts_with("<*")) {
            rules.order += decoded(rule.substr(2));
        } else if (isPinyin && rule.starts_with('&') && rule.find('<') != std::string::npos) {
            addReset(rule, &rules);
        }
    });
    return rules;
}

}  // namespace

// Weights number the characters in their order. A variant of a character, which the rules put behind it at the third level, follows it.
PinyinWeights readPinyin(const std::string &path) {
    PinyinRules rules = readRules(path);
    PinyinWeights result;
    CodUint32 weight = 0;
    for (const char32_t character : rules.order) {
        result.weights[character] = ++weight;
        for (const char32_t variant : rules.variants[character]) {
            result.weights[variant] = ++weight;
        }
        const std::u32string &pair = rules.compounds[character];
        if (!pair.empty() && !result.followers.try_emplace(pair[0], pair[1]).second) {
            throw std::runtime_error("a character begins two pairs");
        }
        if (!pair.empty()) {
            result.weightsBefore[pair[0]] = ++weight;
        }
    }
    notEmpty(result.weights, path);
    return result;
}

}  // namespace codepage_gen
