#include <vel_infra/velon/ani_velon_path.h>

#include <algorithm>
#include <iterator>

#include "velon/ani_velon_path_internal.h"

namespace cod::velon {
namespace {

enum class StepKind : CodUint8 { kMember, kElement, kElementFromEnd, kEveryMember, kEveryElement, kFunction, kEnd };

struct Step {
    StepKind kind;
    CodText name;     // of a member or function
    CodUint32 index;  // of an element; from the end: 0 is the last one
};

constexpr bool isDigit(CodChar c) {
    return c >= '0' && c <= '9';
}
constexpr bool isNameByte(CodChar c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || isDigit(c) || c == '_' || c == '$' || (c & 0x80) != 0;
}

// Reads a path step by step.
class PathReader {
public:
    explicit PathReader(const CodText &path) : path_(path), at_(0) {}

    CodResult readRoot() {
        skipBlanks();
        return take('$') ? COD_SUCCESS : raiseSyntax("a path begins with $");
    }

    CodResult readStep(Step *step) {
        *step = {StepKind::kEnd, {}, 0};
        skipBlanks();
        if (at_ == path_.len) {
            return COD_SUCCESS;
        }
        if (take('.')) {
            return readMemberStep(step);
        }
        return take('[') ? readElementStep(step) : raiseSyntax("\".\" or \"[\" expected");
    }

private:
    CodChar peek() const {
        return at_ < path_.len ? path_.str[at_] : '\0';
    }
    bool take(CodChar c) {
        const bool isThere = at_ < path_.len && path_.str[at_] == c;
        at_ += isThere;
        return isThere;
    }
    void skipBlanks() {
        while (peek() == ' ' || peek() == '\t') {
            at_++;
        }
    }
    COD_COLD CodResult raiseSyntax(const char *reason) const {
        return codRaise(ERR_CMM_VELON_PATH_EXPR_SYNTAX_ERROR, static_cast<int>(at_ + 1), reason);
    }

    CodResult readMemberStep(Step *step);
    CodResult readQuotedName(CodChar quote, CodText *name);
    CodResult readFunction(Step *step);
    CodResult readElementStep(Step *step);
    CodResult readIndex(CodUint32 *index);

    CodText path_;
    CodUint32 at_;
};

CodResult PathReader::readMemberStep(Step *step) {
    skipBlanks();
    step->kind = StepKind::kMember;
    if (take('*')) {
        step->kind = StepKind::kEveryMember;
        return COD_SUCCESS;
    }
    if (peek() == '"' || peek() == '\'') {
        return readQuotedName(path_.str[at_++], &step->name);
    }
    const CodUint32 begin = at_;
    while (at_ < path_.len && isNameByte(path_.str[at_])) {
        at_++;
    }
    if (at_ == begin || isDigit(path_.str[begin])) {
        at_ = begin;
        return raiseSyntax("a name expected");
    }
    step->name = {path_.str + begin, at_ - begin, 0};
    skipBlanks();
    return take('(') ? readFunction(step) : COD_SUCCESS;
}

CodResult PathReader::readQuotedName(CodChar quote, CodText *name) {
    const CodUint32 begin = at_;
    while (at_ < path_.len && path_.str[at_] != quote) {
        at_++;
    }
    *name = {path_.str + begin, at_ - begin, 0};
    return take(quote) ? COD_SUCCESS : raiseSyntax("the name has no closing quote");
}

CodResult PathReader::readFunction(Step *step) {
    static constexpr const char *kFunctions[] = {"count", "size", "type"};
    step->kind = StepKind::kFunction;
    skipBlanks();
    if (!take(')')) {
        return raiseSyntax("\")\" expected");
    }
    const CodText &name = step->name;
    const bool isKnown = std::any_of(std::begin(kFunctions), std::end(kFunctions), [&name](const char *known) {
        return strlen(known) == name.len && memcmp(known, name.str, name.len) == 0;
    });
    if (!isKnown) {
        at_ = static_cast<CodUint32>(name.str - path_.str);
        return raiseSyntax("unknown function");
    }
    skipBlanks();
    return at_ == path_.len ? COD_SUCCESS : raiseSyntax("nothing may follow a function");
}

CodResult PathReader::readElementStep(Step *step) {
    constexpr CodText kLast = {const_cast<CodChar *>("last"), 4, 0};
    skipBlanks();
    step->kind = StepKind::kElement;
    if (take('*')) {
        step->kind = StepKind::kEveryElement;
    } else if (path_.len - at_ >= kLast.len && memcmp(path_.str + at_, kLast.str, kLast.len) == 0) {
        step->kind = StepKind::kElementFromEnd;
        at_ += kLast.len;
        skipBlanks();
        if (take('-')) {
            skipBlanks();
            COD_TRY(readIndex(&step->index));
        }
    } else {
        COD_TRY(readIndex(&step->index));
    }
    skipBlanks();
    return take(']') ? COD_SUCCESS : raiseSyntax("\"]\" expected");
}

// An index beyond 32 bits is beyond every array: it counts as the largest.
CodResult PathReader::readIndex(CodUint32 *index) {
    if (!isDigit(peek())) {
        return raiseSyntax("an index expected");
    }
    CodUint64 value = 0;
    while (isDigit(peek())) {
        value = std::min<CodUint64>(value * 10 + static_cast<CodUint64>(path_.str[at_++] - '0'), UINT32_MAX);
    }
    *index = static_cast<CodUint32>(value);
    return COD_SUCCESS;
}

// Follows a path from value to value; wildcards branch. Ends with the second value that the path leads to.
class Follower {
public:
    Follower(CodUint64 documentLength, PathResult *result) : work_(documentLength), result_(result) {}
    CodUint32 found() const {
        return found_;
    }
    CodResult follow(PathReader rest, PathResult from, CodUint32 branches);

private:
    CodResult branchMembers(const PathReader &rest, const VelonObject &object, CodUint32 branches);
    CodResult branchElements(const PathReader &rest, const VelonArray &array, CodUint32 branches);

    WorkLimit work_;
    PathResult *result_;  // the first one found
    CodUint32 found_ = 0;
};

template <VelonType kType>
CodResult readFound(const VelonLazyValue &lazy, ValueOf<kType> *value) {
    return lazy.isArrayMember ? readElement<kType>(lazy.data, lazy.valuePos, value) : readPayload<kType>(lazy.data, 1, value);
}

CodResult elementAt(const VelonArray &array, CodUint32 index, PathResult *element) {
    element->entry = array.valueEntry + CodUint64{kValueEntry} * index;
    return readLazyElement(array, index, &element->value);
}

// One step that does not branch. *isThere false: it leads nowhere.
CodResult stepInto(const Step &step, PathResult *at, bool *isThere) {
    *isThere = false;
    if (step.kind == StepKind::kMember && at->value.type == VELON_TYPE_OBJECT) {
        VelonObject object;
        CodUint32 valuePos = 0;
        COD_TRY(readFound<VELON_TYPE_OBJECT>(at->value, &object));
        COD_TRY(findKey(object, step.name, &valuePos));
        if (valuePos != 0) {
            *isThere = true;
            return readLazy(object.data, valuePos, &at->value);
        }
    } else if (step.kind != StepKind::kMember && at->value.type == VELON_TYPE_ARRAY) {
        VelonArray array;
        COD_TRY(readFound<VELON_TYPE_ARRAY>(at->value, &array));
        const CodUint32 count = array.data.aux;
        if (step.index < count) {
            *isThere = true;
            return elementAt(array, step.kind == StepKind::kElement ? step.index : count - 1 - step.index, at);
        }
    }
    return COD_SUCCESS;
}

CodResult Follower::follow(PathReader rest, PathResult at, CodUint32 branches) {
    bool isThere = true;
    while (isThere) {
        Step step;
        COD_TRY(rest.readStep(&step));
        if (step.kind == StepKind::kEnd) {
            if (found_++ == 0) {
                *result_ = at;
            }
            return COD_SUCCESS;
        }
        if (step.kind == StepKind::kEveryMember || step.kind == StepKind::kEveryElement) {
            const VelonType wanted = step.kind == StepKind::kEveryMember ? VELON_TYPE_OBJECT : VELON_TYPE_ARRAY;
            if (at.value.type != wanted) {
                return COD_SUCCESS;
            }
            if (branches > VELON_MAX_DEPTH) {
                return raiseNestedTooDeeply();
            }
            if (wanted == VELON_TYPE_OBJECT) {
                VelonObject object;
                COD_TRY(readFound<VELON_TYPE_OBJECT>(at.value, &object));
                return branchMembers(rest, object, branches);
            }
            VelonArray array;
            COD_TRY(readFound<VELON_TYPE_ARRAY>(at.value, &array));
            return branchElements(rest, array, branches);
        }
        COD_TRY(stepInto(step, &at, &isThere));
    }
    return COD_SUCCESS;
}

CodResult Follower::branchMembers(const PathReader &rest, const VelonObject &object, CodUint32 branches) {
    for (CodUint32 i = 0; i < object.data.aux && found_ < 2; i++) {
        CodText key = {};
        CodUint32 valuePos = 0;
        PathResult member = {};
        COD_TRY(work_.spend(kKeyEntry));
        COD_TRY(readRecord(object, keyOffsetAt(object, i), &key, &valuePos));
        COD_TRY(readLazy(object.data, valuePos, &member.value));
        COD_TRY(follow(rest, member, branches + 1));
    }
    return COD_SUCCESS;
}

CodResult Follower::branchElements(const PathReader &rest, const VelonArray &array, CodUint32 branches) {
    for (CodUint32 i = 0; i < array.data.aux && found_ < 2; i++) {
        PathResult element = {};
        COD_TRY(work_.spend(kValueEntry));
        COD_TRY(elementAt(array, i, &element));
        COD_TRY(follow(rest, element, branches + 1));
    }
    return COD_SUCCESS;
}

// The whole path, so that a fault is told wherever the document ends, and a function too.
CodResult checkPath(PathReader path) {
    Step step = {};
    do {
        COD_TRY(path.readStep(&step));
        if (step.kind == StepKind::kFunction) {
            return codRaise(ERR_CMM_VELON_PATH_EXPR_FUNC_NEEDS_WRAP, codErrT2S(&step.name));
        }
    } while (step.kind != StepKind::kEnd);
    return COD_SUCCESS;
}

}  // namespace

CodResult findPath(const Velon &velon, const CodText &path, PathResult *result) {
    PathReader reader(path);
    PathResult first = {};
    COD_TRY(reader.readRoot());
    COD_TRY(checkPath(reader));
    COD_TRY(readLazy(velon.data, 0, &first.value));
    PathResult found = {};
    Follower follower(velon.data.len, &found);
    COD_TRY(follower.follow(reader, first, 0));
    if (follower.found() == 0) {
        return codRaise(ERR_CMM_VELON_PATH_EXPR_NO_RESULT, codErrT2S(&path));
    }
    if (follower.found() > 1) {
        return codRaise(ERR_CMM_VELON_PATH_EXPR_MANY_RESULTS, codErrT2S(&path));
    }
    *result = found;
    return COD_SUCCESS;
}

}  // namespace cod::velon

using namespace cod::velon;

CodResult velonGetPath(const Velon *velon, const CodText *path, VelonLazyValue *value) {
    if (anyNull(velon, path, value)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    PathResult result;
    COD_TRY(findPath(*velon, *path, &result));
    *value = result.value;
    return COD_SUCCESS;
}
