#include <vel_infra/memory/ani_stack.h>

#include <algorithm>

#include <vel_infra/error/ani_error_base.h>

#include "base/cod_bytes.h"

CodResult codStackInit(CodStack *stack, void *buffer, CodUint32 capacity) {
    if (stack == nullptr || (buffer == nullptr && capacity != 0)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (reinterpret_cast<CodUint64>(buffer) % 8 != 0) {
        return codRaise(ERR_CMM_INVALID_PARAMETER, "stack buffer is not 8-byte aligned");
    }
    *stack = {.buffer = static_cast<CodUint8 *>(buffer), .capacity = capacity, .top = 0, .peak = 0, .reserved = 0};
    return COD_SUCCESS;
}

CodResult codStackPush(CodStack *stack, CodUint32 size, void **out) {
    if (stack == nullptr || out == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    const CodUint64 rounded = cod::roundUp8(size);
    if (COD_UNLIKELY(rounded > stack->capacity - stack->top)) {
        *out = nullptr;
        return codRaise(ERR_CMM_WORKSTACK_OVERFLOW, static_cast<CodInt32>(size));
    }
    *out = stack->buffer + stack->top;
    stack->top += static_cast<CodUint32>(rounded);
    stack->peak = std::max(stack->peak, stack->top);
    return COD_SUCCESS;
}

CodUint32 codStackMark(const CodStack *stack) {
    return stack != nullptr ? stack->top : 0;
}

void codStackPop(CodStack *stack, CodUint32 mark) {
    if (stack != nullptr && mark <= stack->top) {
        stack->top = mark;
    }
}
