#ifndef CODEPAGE_GEN_SOURCES_H
#define CODEPAGE_GEN_SOURCES_H

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "page_writer.h"

namespace codepage_gen {

// Readers of the source files (data/codepage/README.md). Each throws when its file cannot be read or is not what it is taken for.

// The codes of a character map of the C library, with their code points.
Elements readCharmap(const std::string &path);

// Simple lower and upper case of each code point that has another one.
struct CaseMappings {
    Elements lower;
    Elements upper;
};
CaseMappings readUnicodeData(const std::string &path);

// The code points that are wide or fullwidth, each with 2.
Elements readWidths(const std::string &path);

// The pinyin collation: the weight of each single character, and by its first character each pair whose first one weighs otherwise.
struct PinyinWeights {
    Elements weights;
    Elements followers;      // the second character of the pair
    Elements weightsBefore;  // the weight of the first one before it
};
PinyinWeights readPinyin(const std::string &path);

}  // namespace codepage_gen

#endif
