#ifndef CODEPAGE_GEN_PAGE_WRITER_H
#define CODEPAGE_GEN_PAGE_WRITER_H

#include <map>
#include <string>
#include <vector>

#include <vel_infra/codepage/ani_codepage.h>

namespace codepage_gen {

// Elements by key; a key that is not there has none.
using Elements = std::map<CodUint32, CodUint32>;

// The tables of one lookup, before they are packed.
struct Table {
    std::vector<CodUint16> index;
    std::vector<CodUint32> words;
};

// Two-stage tables of as many planes as there are lists of elements. Throws when the index cannot number the blocks.
Table makeTable(const std::vector<Elements> &planes);

// The three lookups of a page, in the order of the file.
struct Page {
    CodepageId id;
    const char *name;
    CodepageType type;
    CodUint8 wordWidth;
    Table caseFold = {};
    Table toUnicode = {};
    Table fromUnicode = {};
};

// Writes the file `name` into the folder. Throws when it cannot be written, or an element does not fit a word.
void writePage(const Page &page, const std::string &folder);

}  // namespace codepage_gen

#endif
