// Makes the code-page files of docs/codepage.md.
//   codepage_gen GBK GB18030 UnicodeData.txt EastAsianWidth.txt zh.xml FOLDER

#include <cstdio>
#include <exception>
#include <functional>

#include "codepage/ani_codepage_internal.h"
#include "page_writer.h"
#include "sources.h"

namespace {

using namespace codepage_gen;

using KeyOf = std::function<CodUint32(CodUint32)>;

CodUint32 keepCode(CodUint32 code) {
    return code;
}

Elements fromUnicodeOf(const Elements &toUnicode) {
    Elements codes;
    for (const auto &[code, codePoint] : toUnicode) {
        codes[codePoint] = code;
    }
    return codes;
}

// NUL has element 0, which is that of no element; its block must not differ by it.
Elements withKeys(const Elements &elements, const KeyOf &keyOf) {
    Elements result;
    for (const auto &[code, element] : elements) {
        if (code != 0) {
            result[keyOf(code)] = element;
        }
    }
    return result;
}

// The case of the codes of a page. What the page has no code for stays as it is.
Table foldTable(const CaseMappings &mappings, const Elements &fromUnicode, const KeyOf &keyOf) {
    Elements lower;
    Elements upper;
    for (const auto &[codePoint, lowerPoint] : mappings.lower) {
        const auto code = fromUnicode.find(codePoint);
        if (code == fromUnicode.end()) {
            continue;
        }
        const auto codeOr = [&](CodUint32 other) { return fromUnicode.contains(other) ? fromUnicode.at(other) : code->second; };
        const CodUint32 lowerCode = codeOr(lowerPoint);
        const CodUint32 upperCode = codeOr(mappings.upper.at(codePoint));
        if (lowerCode != code->second || upperCode != code->second) {
            lower[keyOf(code->second)] = lowerCode;
            upper[keyOf(code->second)] = upperCode;
        }
    }
    return makeTable({lower, upper});
}

Page charsetPage(CodepageId id, const char *name, CodUint8 wordWidth, const Elements &toUnicode, const Elements &fromUnicode,
                 const CaseMappings &mappings, const KeyOf &keyOf) {
    Page page = {id, name, CODEPAGE_TYPE_CHARSET, wordWidth};
    page.caseFold = foldTable(mappings, fromUnicode, keyOf);
    page.toUnicode = makeTable({withKeys(toUnicode, keyOf)});
    page.fromUnicode = makeTable({withKeys(fromUnicode, keepCode)});
    return page;
}

Page latin1Page(const CaseMappings &mappings) {
    Elements codes;
    for (CodUint32 code = 0; code < 0x100; code++) {
        codes[code] = code;
    }
    return charsetPage(CODEPAGE_ISO88591, "iso88591", 2, codes, codes, mappings, keepCode);
}

Page gbkPage(const std::string &path, const CaseMappings &mappings) {
    const Elements codes = readCharmap(path);
    return charsetPage(CODEPAGE_GBK, "gbk", 2, codes, fromUnicodeOf(codes), mappings, keepCode);
}

// The character map leaves out of the supplementary planes what is not assigned; all of them are four-byte codes in their order, and need
// no table. Only the case tables have to know them. A code point with a code of two bytes gives its four-byte code up: the latter is
// still read, but not written.
Page gb18030Page(const std::string &path, const CaseMappings &mappings) {
    Elements toUnicode;
    Elements fromUnicode;
    for (const auto &[code, codePoint] : readCharmap(path)) {
        if (code < 0x10000 || codePoint < cod::kBasicPlaneEnd) {
            toUnicode[code] = codePoint;
            fromUnicode[codePoint] = code;
        }
    }
    Elements withLinear = fromUnicode;
    for (const auto &[codePoint, lower] : mappings.lower) {
        if (codePoint >= cod::kBasicPlaneEnd) {
            withLinear.try_emplace(codePoint, cod::gb18030CodeAt(cod::kGb18030LinearBegin + codePoint - cod::kBasicPlaneEnd));
        }
    }
    Page page = charsetPage(CODEPAGE_GB18030, "gb18030", 4, toUnicode, fromUnicode, mappings, cod::gb18030Key);
    page.caseFold = foldTable(mappings, withLinear, cod::gb18030Key);
    return page;
}

// To and from Unicode is the identity, so that the tables from Unicode are free for the widths.
Page ucsPage(const CaseMappings &mappings, const std::string &widths) {
    Page page = {CODEPAGE_UCS, "ucs", CODEPAGE_TYPE_CHARSET, 4};
    page.caseFold = makeTable({mappings.lower, mappings.upper});
    page.fromUnicode = makeTable({readWidths(widths)});
    return page;
}

Page pinyinPage(const std::string &path) {
    const PinyinWeights pinyin = readPinyin(path);
    Page page = {CODEPAGE_PINYIN_SORT, "pinyin.sort", CODEPAGE_TYPE_SORT, 2};
    page.caseFold = makeTable({pinyin.followers, pinyin.weightsBefore});
    page.fromUnicode = makeTable({pinyin.weights});
    return page;
}

void writeAll(char **sources, const std::string &folder) {
    const CaseMappings mappings = readUnicodeData(sources[2]);
    writePage(latin1Page(mappings), folder);
    writePage(gbkPage(sources[0], mappings), folder);
    writePage(ucsPage(mappings, sources[3]), folder);
    writePage(pinyinPage(sources[4]), folder);
    writePage(gb18030Page(sources[1], mappings), folder);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 7) {
        std::fprintf(stderr, "usage: codepage_gen GBK GB18030 UnicodeData.txt EastAsianWidth.txt zh.xml FOLDER\n");
        return 2;
    }
    try {
        writeAll(argv + 1, argv[6]);
        return 0;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "codepage_gen: %s\n", error.what());
        return 1;
    }
}
