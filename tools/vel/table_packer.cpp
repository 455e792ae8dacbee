#include "table_packer.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <vel_infra/error/ani_error_base.h>

#include "printable.h"

namespace vel {

namespace {

constexpr CodUint32 kShownLimit = 72;  // bytes of a value in a message

// The whole text as an unsigned number.
template <class T>
bool parseWhole(std::string_view text, T *value) {
    const char *end = text.data() + text.size();
    const auto [rest, fault] = std::from_chars(text.data(), end, *value);
    return fault == std::errc() && rest == end;
}

}  // namespace

TablePacker::TablePacker(const TablePackerOptions &options, ColumnPacker *packer) : options_(options), packer_(packer) {
    if (!parseWhole(options.column, &number_)) {
        number_ = 0;
    }
}

CodResult TablePacker::onField(const CodText &field) {
    fieldsOfRow_++;
    if (COD_UNLIKELY(rows_ == 0)) {
        return onFirstRowField(field);
    }
    return fieldsOfRow_ == chosen_ ? addValue(field) : COD_SUCCESS;
}

// A name that --column is may still come behind the column of that number; but without a header no name looks like a number.
CodResult TablePacker::onFirstRowField(const CodText &field) {
    char ownName[32];
    CodText name = field;
    if (!options_.hasHeader) {
        const int length = snprintf(ownName, sizeof(ownName), "column %lu", fieldsOfRow_);
        name = {ownName, static_cast<CodUint32>(length), 0};
    }
    const bool isNamed = std::string_view(name.str, name.len) == options_.column;
    if (isNamed && isByName_) {
        char reason[PrintableName::kNameLimit + 64];
        snprintf(reason, sizeof(reason), "column \"%s\" is named twice", PrintableName(name).str());
        return raiseInRow(reason);
    }
    if (isNamed || (fieldsOfRow_ == number_ && !isByName_)) {
        isByName_ = isNamed;
        COD_TRY(choose(name));
    }
    if (options_.hasHeader || fieldsOfRow_ != chosen_) {
        return COD_SUCCESS;
    }
    COD_TRY(packer_->begin(name));
    return addValue(field);
}

CodResult TablePacker::choose(const CodText &name) {
    chosen_ = fieldsOfRow_;
    if (name.len > kPackedNameLimit) {
        char reason[96];
        snprintf(reason, sizeof(reason), "the name of column %lu is longer than %u bytes", chosen_, kPackedNameLimit);
        return raiseInRow(reason);
    }
    memcpy(chosenName_, name.str, name.len);
    chosenNameSize_ = name.len;
    return COD_SUCCESS;
}

CodResult TablePacker::endFirstRow() {
    columnCount_ = fieldsOfRow_;
    if (chosen_ == 0) {
        char reason[2 * PrintableName::kNameLimit + 64];
        snprintf(reason, sizeof(reason), "there is no column \"%s\" in %s", PrintableName(options_.column).str(), options_.name);
        return codRaise(ERR_CMM_INVALID_PARAMETER, reason);
    }
    textBytes_ += chosenNameSize_ + CodUint64{1};
    return options_.hasHeader ? packer_->begin({chosenName_, chosenNameSize_, 0}) : COD_SUCCESS;
}

CodResult TablePacker::onRow() {
    if (rows_ == 0) {
        COD_TRY(endFirstRow());
    } else if (fieldsOfRow_ != columnCount_) {
        return raiseFieldCount(options_.name, rows_ + 1, columnCount_, fieldsOfRow_);
    }
    rows_++;
    fieldsOfRow_ = 0;
    return COD_SUCCESS;
}

CodResult TablePacker::finish() {
    return rows_ == 0 ? raiseInRow("the input is empty") : COD_SUCCESS;
}

// A number with leading zeros would come back without them.
CodResult TablePacker::addValue(const CodText &field) {
    CodUint32 value = 0;
    const bool hasLeadingZero = field.len > 1 && field.str[0] == '0';
    if (COD_LIKELY(!hasLeadingZero && parseWhole({field.str, field.len}, &value))) {
        textBytes_ += field.len + CodUint64{1};
        return packer_->add(value);
    }
    if (field.len == 0) {
        return raiseInRow("the field is empty");
    }
    char shown[kShownLimit + 4];
    char reason[sizeof(shown) + 96];
    writePrintable(field, false, '"', kShownLimit, shown);
    snprintf(reason, sizeof(reason), "\"%s\" is no whole number from 0 to 4294967295 in plain digits", shown);
    return raiseInRow(reason);
}

CodResult TablePacker::raiseInRow(const char *reason) const {
    return codRaise(ERR_CMM_PARSER_ERROR, options_.name, rows_ + 1, reason);
}

}  // namespace vel
