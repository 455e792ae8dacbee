#include <vel_infra/velon/ani_velon_patch.h>

#include <vel_infra/velon/ani_velon_buf.h>
#include <vel_infra/velon/ani_velon_build_object.h>

#include "velon/ani_velon_buf_internal.h"
#include "velon/ani_velon_path_internal.h"

namespace cod::velon {
namespace {

CodResult copyDocument(CodMemAlloc *owner, const VelonData &data, Velon *copy) {
    VelonBuf buf;
    COD_TRY(velonBufWithCapacity(owner, data.len, &buf));
    memcpy(buf.ptr, data.ptr, data.len);
    buf.len = data.len;
    return velonBufMoveToVelon(&buf, copy);
}

// ---- One scalar ----

// The payload of a scalar that a path led to, checked by reading it. *width: of the type; becomes that of the place.
CodResult locatePayload(const PathResult &found, const CodUint8 **payload, CodUint32 *width) {
    const VelonLazyValue &lazy = found.value;
    VelonValue current;
    if (!lazy.isArrayMember) {
        COD_TRY(readValueOf(lazy.type, lazy.data, 1, &current));
        *payload = lazy.data.ptr + 1;
        return COD_SUCCESS;
    }
    COD_TRY(readElementOf(lazy.type, lazy.data, lazy.valuePos, &current));
    if (isInline(static_cast<CodUint32>(lazy.type))) {
        // The whole word counts, whatever stood in the bytes that the type does not fill.
        *payload = found.entry + 1;
        *width = sizeof(CodUint32);
        return COD_SUCCESS;
    }
    *payload = lazy.data.ptr + lazy.valuePos + kCountAt + 1;
    return COD_SUCCESS;
}

// ---- Merge ----

// A member of a merged object: its value in the target and in the patch, null where it has none.
struct Merged {
    CodText key;
    const VelonLazyValue *target;
    const VelonLazyValue *patch;

    bool isKept() const {
        return patch == nullptr || patch->type != VELON_TYPE_NULL;
    }
};

// One side of a merge: its members in key order.
class Side {
public:
    explicit Side(const VelonObject &object) : object_(object), index_(0) {}
    bool isAtEnd() const {
        return index_ == object_.data.aux;
    }
    CodResult read(CodText *key, VelonLazyValue *value) const {
        CodUint32 at = 0;
        COD_TRY(readRecord(object_, keyOffsetAt(object_, index_), key, &at));
        return readLazy(object_.data, at, value);
    }
    void step() {
        index_++;
    }

private:
    VelonObject object_;
    CodUint32 index_;
};

class Merger {
public:
    explicit Merger(CodUint64 documentLengths) : work_(documentLengths) {}
    // The members that the merged object will have.
    CodResult count(const VelonObject &target, const VelonObject &patch, CodUint16 *merged);
    CodResult pushMembers(const VelonObject &target, const VelonObject &patch, VelonObjectBuilder *builder);

private:
    template <class Visit>
    CodResult forEach(const VelonObject &target, const VelonObject &patch, Visit visit);
    CodResult pushMember(const Merged &member, VelonObjectBuilder *builder);

    WorkLimit work_;
};

// Both sides ascend, so one walk meets equal keys together.
template <class Visit>
CodResult Merger::forEach(const VelonObject &target, const VelonObject &patch, Visit visit) {
    Side targetSide(target);
    Side patchSide(patch);
    while (!targetSide.isAtEnd() || !patchSide.isAtEnd()) {
        CodText targetKey = {};
        CodText patchKey = {};
        VelonLazyValue targetValue = {};
        VelonLazyValue patchValue = {};
        if (!targetSide.isAtEnd()) {
            COD_TRY(targetSide.read(&targetKey, &targetValue));
        }
        if (!patchSide.isAtEnd()) {
            COD_TRY(patchSide.read(&patchKey, &patchValue));
        }
        const CodInt32 order = targetSide.isAtEnd() ? 1 : patchSide.isAtEnd() ? -1 : compareKeys(targetKey, patchKey);
        const Merged member = {order <= 0 ? targetKey : patchKey, order <= 0 ? &targetValue : nullptr, order >= 0 ? &patchValue : nullptr};
        COD_TRY(work_.spend(kKeyEntry + CodUint64{member.key.len}));
        if (member.isKept()) {
            COD_TRY(visit(member));
        }
        if (order <= 0) {
            targetSide.step();
        }
        if (order >= 0) {
            patchSide.step();
        }
    }
    return COD_SUCCESS;
}

CodResult Merger::count(const VelonObject &target, const VelonObject &patch, CodUint16 *merged) {
    CodUint32 members = 0;
    COD_TRY(forEach(target, patch, [&members](const Merged &) {
        members++;
        return COD_SUCCESS;
    }));
    if (members > VELON_MAX_ELEMENTS) {
        return codRaise(ERR_CMM_VELON_TOO_MANY_CHILDREN, VELON_MAX_ELEMENTS);
    }
    *merged = static_cast<CodUint16>(members);
    return COD_SUCCESS;
}

// What a patch is merged into where the target has no object: one without members, its count and no more.
constexpr CodUint8 kNoMembers[] = {VELON_TYPE_OBJECT, 2, 0, 0, 0, 0, 0};
constexpr VelonObject kEmptyObject = {{kNoMembers, sizeof(kNoMembers), 0}, kNoMembers + sizeof(kNoMembers)};

CodResult readTarget(const VelonLazyValue *target, VelonObject *object) {
    *object = kEmptyObject;
    return target != nullptr && target->type == VELON_TYPE_OBJECT ? readPayload<VELON_TYPE_OBJECT>(target->data, 1, object) : COD_SUCCESS;
}

CodResult Merger::pushMember(const Merged &member, VelonObjectBuilder *builder) {
    if (member.patch == nullptr || member.patch->type != VELON_TYPE_OBJECT) {
        return velonObjectBuilderPushLazyValue(builder, &member.key, member.patch != nullptr ? member.patch : member.target);
    }
    VelonObject target;
    VelonObject patch;
    CodUint16 members = 0;
    VelonObjectBuilder nested;
    Velon written;
    COD_TRY(readTarget(member.target, &target));
    COD_TRY(readPayload<VELON_TYPE_OBJECT>(member.patch->data, 1, &patch));
    COD_TRY(count(target, patch, &members));
    COD_TRY(velonObjectBuilderPushObject(builder, &member.key, members, true, &nested));
    COD_TRY(pushMembers(target, patch, &nested));
    return velonObjectBuilderFinish(&nested, &written);
}

CodResult Merger::pushMembers(const VelonObject &target, const VelonObject &patch, VelonObjectBuilder *builder) {
    return forEach(target, patch, [this, builder](const Merged &member) { return pushMember(member, builder); });
}

}  // namespace
}  // namespace cod::velon

using namespace cod::velon;

CodResult velonPatchScalar(CodMemAlloc *owner, const Velon *velon, const CodText *path, const VelonValue *value, Velon *result) {
    if (anyNull(owner, velon, path, value, result)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    CodUint32 width = velonTypeIsValid(static_cast<CodUint32>(value->type)) ? kWidths.of[value->type] : kNoWidth;
    if (width == 0 || width == kNoWidth) {
        return codRaise(ERR_CMM_INVALID_PARAMETER, "the type has no fixed width");
    }
    // All members of the union begin it.
    CodUint8 encoded[sizeof(CodUint64)] = {};
    memcpy(encoded, &value->u, width);
    PathResult found;
    const CodUint8 *payload = nullptr;
    Velon copy;
    COD_TRY(findPath(*velon, *path, &found));
    if (found.value.type != value->type) {
        return raiseUnexpectedType(value->type, static_cast<CodUint32>(found.value.type));
    }
    COD_TRY(locatePayload(found, &payload, &width));
    COD_TRY(copyDocument(owner, velon->data, &copy));
    memcpy(const_cast<CodUint8 *>(copy.data.ptr) + (payload - velon->data.ptr), encoded, width);
    *result = copy;
    return COD_SUCCESS;
}

CodResult velonMergePatch(CodMemAlloc *owner, const Velon *target, const Velon *patch, Velon *result) {
    if (anyNull(owner, target, patch, result)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    VelonLazyValue targetRoot;
    VelonLazyValue patchRoot;
    COD_TRY(readLazy(target->data, 0, &targetRoot));
    COD_TRY(readLazy(patch->data, 0, &patchRoot));
    if (patchRoot.type != VELON_TYPE_OBJECT) {
        return copyDocument(owner, patch->data, result);
    }
    VelonObject targetObject;
    VelonObject patchObject;
    CodUint16 members = 0;
    Merger merger(CodUint64{target->data.len} + patch->data.len);
    COD_TRY(readTarget(&targetRoot, &targetObject));
    COD_TRY(readPayload<VELON_TYPE_OBJECT>(patchRoot.data, 1, &patchObject));
    COD_TRY(merger.count(targetObject, patchObject, &members));
    VelonObjectBuilder builder;
    CodResult merged = velonObjectBuilderCreate(owner, members, true, patch->data.len, &builder);
    if (merged == COD_SUCCESS) {
        merged = merger.pushMembers(targetObject, patchObject, &builder);
    }
    if (merged == COD_SUCCESS) {
        merged = velonObjectBuilderFinish(&builder, result);
    }
    velonObjectBuilderFree(&builder);
    return merged;
}
