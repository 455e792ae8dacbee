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

struct OrderSlots {
    CodInt32 (*compare)(const CodText *left, const CodText *right);
    CodTextMap nlsSort;
    CodTextMap mysqlSort;
};

template <class Charset, template <class, CodCaseMode> class OrderOf, CodCaseMode mode>
constexpr OrderSlots orderBy() {
    return {textCompare<Charset, OrderOf, mode>, textSortKey<Charset, OrderOf, mode>,
            textSortKeyWithoutBlanks<Charset, textSortKey<Charset, OrderOf, mode>>};
}

template <class Charset, CodSortMethodId sort, CodCaseMode mode>
constexpr OrderSlots orderSlots() {
    if constexpr (!Charset::kHasCase || (sort == BINARY && mode == CASE_SENS && Charset::kUnit == 1)) {
        return {textCompareBytes<Charset>, textSortKeyOfBytes<Charset>, textSortKeyWithoutBlanks<Charset, textSortKeyOfBytes<Charset>>};
    } else if constexpr (sort == BINARY) {
        return orderBy<Charset, BinaryOrder, mode>();
    } else if constexpr (sort == GENERAL) {
        return orderBy<Charset, GeneralOrder, mode>();
    } else {
        return orderBy<Charset, PinyinOrder, mode>();
    }
}

template <class Charset, CodCaseMode mode>
constexpr CodUint16 collationFlags() {
    return static_cast<CodUint16>((mode == CASE_INS ? COD_COLLATION_CASE_INS : 0) | (Charset::kIsFixedLen ? COD_COLLATION_FIXED_LEN : 0) |
                                  (Charset::kIsNational ? COD_COLLATION_NATIONAL : 0));
}

constexpr CodUint16 collationIdOf(CodUint16 charset, CodUint16 sort, CodUint16 mode) {
    return static_cast<CodUint16>((charset * __SORT_METHOD_COUNT__ + sort) * __CASE_MODE_COUNT__ + mode);
}

// In the order of the record: the compiler refuses a slot that is missing.
template <class Charset, CodSortMethodId sort, CodCaseMode mode>
constexpr CodCollation makeCollation() {
    using Numbers = TextNumbers<Charset::kUnit == 2>;
    constexpr OrderSlots order = orderSlots<Charset, sort, mode>();
    constexpr bool isFolded = mode == CASE_INS && Charset::kHasCase;
    return {
        .trimLeft = textTrimLeft<Charset>,
        .trimRight = textTrimRight<Charset>,
        .trimCharLeft = textTrimCharLeft<Charset, mode>,
        .trimCharRight = textTrimCharRight<Charset, mode>,

        .upper = textToCase<Charset, UpperCase<Charset>>,
        .lower = textToCase<Charset, LowerCase<Charset>>,
        .isCaseFoldWord = textIsCaseFoldWord<Charset>,

        .substr = textSubstr<Charset>,
        .substrb = textSubstrb<Charset>,
        .length = textLength<Charset>,

        .compare = order.compare,
        .equal = isFolded ? textEqualFolded<Charset> : textEqualBytes,

        .in = textIn<Charset, mode>,
        .kmpIn = textHas<Charset, mode>,
        .kmpGetFirstSubPos = textFirstSubPos<Charset, mode>,
        .inLong = textInLong<Charset, mode>,

        .charPos = textCharPos<Charset>,
        .charPos2 = textCharPos2<Charset>,
        .deDuplicate = textDeDuplicate<Charset, mode>,
        .nextCharLengthB = textNextCharLengthB<Charset>,
        .getDisplayWidth = textDisplayWidth<Charset>,
        .posMove = textPosMove<Charset>,

        .nlsSort = order.nlsSort,
        .translate = textTranslate<Charset, mode>,

        .fromInt = Numbers::fromInt,
        .fromUint = Numbers::fromUint,
        .fromDouble = Numbers::fromDouble,
        .fromFloat = Numbers::fromFloat,
        .fromNumber = Numbers::fromNumber,
        .fromNumberByForm = Numbers::fromNumberByForm,
        .fromNumberBySciForm = Numbers::fromNumberBySciForm,

        .split = textSplit<Charset, mode>,
        .splitReverse = textSplitReverse<Charset, mode>,
        .charBoundary = textCharBoundary<Charset>,
        .trimInvalidChar = textTrimInvalidChar<Charset>,

        .setLikeSubInfo = textSetLikeSubInfo<Charset, mode>,
        .backwardInLongFast = textBackwardInLong<Charset, mode>,

        .toNumberByForm = Numbers::toNumberByForm,
        .toNumber = Numbers::toNumber,
        .toTruncNumber = Numbers::toTruncNumber,
        .toFloat = Numbers::toFloat,
        .toDouble = Numbers::toDouble,
        .toUint64 = Numbers::toUint64,
        .toUint32 = Numbers::toUint32,
        .toUint16 = Numbers::toUint16,
        .toUint8 = Numbers::toUint8,
        .toBool = Numbers::toBool,

        .toUni = textToUni<Charset>,
        .fromUni = textFromUni<Charset>,

        .collationName = &kCollationText<Charset, sort, mode>,
        .mysqlSort = order.mysqlSort,
        .flag = collationFlags<Charset, mode>(),
        .collationId = collationIdOf(Charset::kId, sort, mode),
    };
}

template <class Charset>
constexpr CharsetCollations collationsOf() {
    return {{{makeCollation<Charset, BINARY, CASE_SENS>(), makeCollation<Charset, BINARY, CASE_INS>()},
             {makeCollation<Charset, CHINESE_PINYIN, CASE_SENS>(), makeCollation<Charset, CHINESE_PINYIN, CASE_INS>()},
             {makeCollation<Charset, GENERAL, CASE_SENS>(), makeCollation<Charset, GENERAL, CASE_INS>()}}};
}

}  // namespace cod
