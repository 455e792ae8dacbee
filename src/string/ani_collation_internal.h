#pragma once

// The collations of a charset, made of the slots of its families.
//
// A new charset writes a struct with the members that ani_text_character_internal.h names, a source with collationsOf<it>, and its row in
// ani_collation.cpp.

#include <vel_infra/string/ani_collation.h>

#include "string/ani_text_number_internal.h"
#include "string/ani_text_search_internal.h"

namespace cod {

// By sort method and case mode.
struct CharsetCollations {
    CodCollation by[__SORT_METHOD_COUNT__][__CASE_MODE_COUNT__];
};

extern const CharsetCollations kAsciiCollations;
extern const CharsetCollations kGbkCollations;
extern const CharsetCollations kUtf8Collations;
extern const CharsetCollations kIso88591Collations;
extern const CharsetCollations kUtf16Collations;
extern const CharsetCollations kGb18030Collations;
extern const CharsetCollations kBinaryCollations;

// ---- Names ----

constexpr const char *kSortNames[__SORT_METHOD_COUNT__] = {"BINARY", "PINYIN", "GENERAL"};
constexpr const char *kCaseNames[__CASE_MODE_COUNT__] = {"CS", "CI"};

struct CollationName {
    CodChar text[32] = {};
    CodUint32 length = 0;

    constexpr void add(const char *part) {
        for (; *part != 0; part++) {
            text[length++] = *part;
        }
    }
};

template <class Charset, CodSortMethodId sort, CodCaseMode mode>
constexpr CollationName makeCollationName() {
    CollationName name;
    name.add(Charset::kName);
    name.add("_");
    name.add(kSortNames[sort]);
    name.add("_");
    name.add(kCaseNames[mode]);
    return name;
}

template <class Charset, CodSortMethodId sort, CodCaseMode mode>
inline constexpr CollationName kCollationName = makeCollationName<Charset, sort, mode>();

template <class Charset, CodSortMethodId sort, CodCaseMode mode>
inline constexpr CodText kCollationText = {const_cast<CodChar *>(kCollationName<Charset, sort, mode>.text),
                                           kCollationName<Charset, sort, mode>.length, 0};

// ---- Slots ----

template <class Charset, CodSortMethodId sort, CodCaseMode mode>
constexpr void setOrder(CodCollation *ops) {
    if constexpr (!Charset::kHasCase || (sort == BINARY && mode == CASE_SENS && Charset::kUnit == 1)) {
        ops->compare = textCompareBytes<Charset>;
        ops->nlsSort = textSortKeyOfBytes<Charset>;
        ops->mysqlSort = textSortKeyWithoutBlanks<Charset, textSortKeyOfBytes<Charset>>;
    } else if constexpr (sort == BINARY) {
        ops->compare = textCompare<Charset, BinaryOrder, mode>;
        ops->nlsSort = textSortKey<Charset, BinaryOrder, mode>;
        ops->mysqlSort = textSortKeyWithoutBlanks<Charset, textSortKey<Charset, BinaryOrder, mode>>;
    } else if constexpr (sort == GENERAL) {
        ops->compare = textCompare<Charset, GeneralOrder, mode>;
        ops->nlsSort = textSortKey<Charset, GeneralOrder, mode>;
        ops->mysqlSort = textSortKeyWithoutBlanks<Charset, textSortKey<Charset, GeneralOrder, mode>>;
    } else {
        ops->compare = textCompare<Charset, PinyinOrder, mode>;
        ops->nlsSort = textSortKey<Charset, PinyinOrder, mode>;
        ops->mysqlSort = textSortKeyWithoutBlanks<Charset, textSortKey<Charset, PinyinOrder, mode>>;
    }
}

constexpr CodUint16 collationIdOf(CodUint16 charset, CodUint16 sort, CodUint16 mode) {
    return static_cast<CodUint16>((charset * __SORT_METHOD_COUNT__ + sort) * __CASE_MODE_COUNT__ + mode);
}

template <class Charset, CodSortMethodId sort, CodCaseMode mode>
constexpr CodCollation makeCollation() {
    using Numbers = TextNumbers<Charset::kUnit == 2>;
    CodCollation ops = {};

    ops.trimLeft = textTrimLeft<Charset>;
    ops.trimRight = textTrimRight<Charset>;
    ops.trimCharLeft = textTrimCharLeft<Charset, mode>;
    ops.trimCharRight = textTrimCharRight<Charset, mode>;

    ops.upper = textToCase<Charset, UpperCase<Charset>>;
    ops.lower = textToCase<Charset, LowerCase<Charset>>;
    ops.isCaseFoldWord = textIsCaseFoldWord<Charset>;

    ops.substr = textSubstr<Charset>;
    ops.substrb = textSubstrb<Charset>;
    ops.length = textLength<Charset>;

    setOrder<Charset, sort, mode>(&ops);
    ops.equal = mode == CASE_INS && Charset::kHasCase ? textEqualFolded<Charset> : textEqualBytes;

    ops.in = textIn<Charset, mode>;
    ops.kmpIn = textHas<Charset, mode>;
    ops.kmpGetFirstSubPos = textFirstSubPos<Charset, mode>;
    ops.inLong = textInLong<Charset, mode>;

    ops.charPos = textCharPos<Charset>;
    ops.charPos2 = textCharPos2<Charset>;
    ops.deDuplicate = textDeDuplicate<Charset, mode>;
    ops.nextCharLengthB = textNextCharLengthB<Charset>;
    ops.getDisplayWidth = textDisplayWidth<Charset>;
    ops.posMove = textPosMove<Charset>;
    ops.translate = textTranslate<Charset, mode>;

    ops.fromInt = Numbers::fromInt;
    ops.fromUint = Numbers::fromUint;
    ops.fromDouble = Numbers::fromDouble;
    ops.fromFloat = Numbers::fromFloat;
    ops.fromNumber = Numbers::fromNumber;
    ops.fromNumberByForm = Numbers::fromNumberByForm;
    ops.fromNumberBySciForm = Numbers::fromNumberBySciForm;

    ops.split = textSplit<Charset, mode>;
    ops.splitReverse = textSplitReverse<Charset, mode>;
    ops.charBoundary = textCharBoundary<Charset>;
    ops.trimInvalidChar = textTrimInvalidChar<Charset>;
    ops.setLikeSubInfo = textSetLikeSubInfo<Charset, mode>;
    ops.backwardInLongFast = textBackwardInLong<Charset, mode>;

    ops.toNumberByForm = Numbers::toNumberByForm;
    ops.toNumber = Numbers::toNumber;
    ops.toTruncNumber = Numbers::toTruncNumber;
    ops.toFloat = Numbers::toFloat;
    ops.toDouble = Numbers::toDouble;
    ops.toUint64 = Numbers::toUint64;
    ops.toUint32 = Numbers::toUint32;
    ops.toUint16 = Numbers::toUint16;
    ops.toUint8 = Numbers::toUint8;
    ops.toBool = Numbers::toBool;

    ops.toUni = textToUni<Charset>;
    ops.fromUni = textFromUni<Charset>;

    ops.collationName = &kCollationText<Charset, sort, mode>;
    ops.flag =
        static_cast<CodUint16>((mode == CASE_INS ? COD_COLLATION_CASE_INS : 0) | (Charset::kIsFixedLen ? COD_COLLATION_FIXED_LEN : 0) |
                               (Charset::kIsNational ? COD_COLLATION_NATIONAL : 0));
    ops.collationId = collationIdOf(Charset::kId, sort, mode);
    return ops;
}

template <class Charset>
constexpr CharsetCollations collationsOf() {
    return {{{makeCollation<Charset, BINARY, CASE_SENS>(), makeCollation<Charset, BINARY, CASE_INS>()},
             {makeCollation<Charset, CHINESE_PINYIN, CASE_SENS>(), makeCollation<Charset, CHINESE_PINYIN, CASE_INS>()},
             {makeCollation<Charset, GENERAL, CASE_SENS>(), makeCollation<Charset, GENERAL, CASE_INS>()}}};
}

}  // namespace cod
