#include "page_writer.h"

#include <cstring>
#include <fstream>
#include <stdexcept>

#include "codepage/ani_codepage_internal.h"

namespace codepage_gen {

namespace {

constexpr CodUint32 kMostBlocks = 0x10000;

std::vector<CodUint32> blockAt(const std::vector<Elements> &planes, CodUint32 begin) {
    std::vector<CodUint32> words;
    for (const Elements &elements : planes) {
        std::vector<CodUint32> plane(cod::kCodepageBlock);
        for (auto at = elements.lower_bound(begin); at != elements.end() && at->first < begin + cod::kCodepageBlock; ++at) {
            plane[at->first - begin] = at->second;
        }
        words.insert(words.end(), plane.begin(), plane.end());
    }
    return words;
}

CodUint32 endOf(const std::vector<Elements> &planes) {
    CodUint32 end = 0;
    for (const Elements &elements : planes) {
        end = elements.empty() ? end : std::max(end, elements.rbegin()->first + 1);
    }
    return end;
}

std::string packed(CodUint32 value, CodUint32 width) {
    if (width < sizeof(value) && value >> 8 * width != 0) {
        throw std::runtime_error("an element does not fit " + std::to_string(width) + " bytes");
    }
    return {reinterpret_cast<const char *>(&value), width};  // little-endian as the machine
}

std::string packedIndex(const Table &table) {
    return {reinterpret_cast<const char *>(table.index.data()), table.index.size() * sizeof(CodUint16)};
}

std::string packedMap(const Table &table, CodUint32 width) {
    std::string bytes;
    for (const CodUint32 word : table.words) {
        bytes += packed(word, width);
    }
    return bytes;
}

}  // namespace

Table makeTable(const std::vector<Elements> &planes) {
    Table table;
    std::map<std::vector<CodUint32>, CodUint16> numbers;
    const CodUint32 end = endOf(planes);
    for (CodUint32 begin = 0; begin < end; begin += cod::kCodepageBlock) {
        const std::vector<CodUint32> block = blockAt(planes, begin);
        const auto [at, isNew] = numbers.try_emplace(block, static_cast<CodUint16>(numbers.size()));
        if (numbers.size() > kMostBlocks) {
            throw std::runtime_error("too many blocks");
        }
        table.index.push_back(at->second);
        if (isNew) {
            table.words.insert(table.words.end(), block.begin(), block.end());
        }
    }
    return table;
}

void writePage(const Page &page, const std::string &folder) {
    CodepageHead head = {};
    head.type = static_cast<CodUint8>(page.type);
    head.version = COD_CODEPAGE_VERSION;
    std::strncpy(head.name, page.name, sizeof(head.name) - 1);
    head.id = static_cast<CodUint16>(page.id);
    head.dim = cod::kCodepageDim;
    head.wordWidth = page.wordWidth;
    std::string tables;
    const auto add = [&](const std::string &bytes) {
        tables += bytes;
        return static_cast<CodUint32>(bytes.size());
    };
    head.casefoldIndexSize = add(packedIndex(page.caseFold));
    head.casefoldMapSize = add(packedMap(page.caseFold, page.wordWidth));
    head.toUnicodeIndexSize = add(packedIndex(page.toUnicode));
    head.toUnicodeMapSize = add(packedMap(page.toUnicode, page.wordWidth));
    head.fromUnicodeIndexSize = add(packedIndex(page.fromUnicode));
    head.fromUnicodeMapSize = add(packedMap(page.fromUnicode, page.wordWidth));

    const std::string path = folder + "/" + page.name;
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char *>(&head), sizeof(head)) << tables;
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}

}  // namespace codepage_gen
