// Looking into a pool: the integrity walk and the report.

#include <stdarg.h>
#include <stdio.h>

#include <algorithm>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/memory/ani_memory.h>

#include "memory/ani_memory_internal.h"

namespace {

// What is wrong with a pool; empty: nothing.
struct Finding {
    char text[192] = "";

    COD_PRINTF(2, 3) void set(const char *fmt, ...) {
        va_list args;
        va_start(args, fmt);
        vsnprintf(text, sizeof text, fmt, args);
        va_end(args);
    }
};

CodUint8 loadType(const MpoolBlockCtrl *block) {
    return __atomic_load_n(&block->type, __ATOMIC_ACQUIRE);
}

// Calls visit(block, expected continuity code) for every block of every buffer until it returns false.
template <class Visit>
void forEachBlock(const MemoryPool *pool, Visit visit) {
    for (MpoolBuffer *buffer = pool->buffer; buffer != nullptr; buffer = buffer->next) {
        const CodUint64 count = cod::blocksIn(buffer, pool->blockSize);
        for (CodUint64 i = 0; i < count; i++) {
            if (!visit(cod::blockAt(buffer->data, pool->blockSize, i), static_cast<CodUint8>(buffer->startId + i))) {
                return;
            }
        }
    }
}

bool isBlockOf(const MemoryPool *pool, const MpoolBlockCtrl *block) {
    const auto address = reinterpret_cast<CodUint64>(block);
    for (const MpoolBuffer *buffer = pool->buffer; buffer != nullptr; buffer = buffer->next) {
        const auto start = reinterpret_cast<CodUint64>(buffer->data);
        const CodUint64 stride = cod::blockStride(pool->blockSize);
        if (address >= start && (address - start) / stride < cod::blocksIn(buffer, pool->blockSize)) {
            return (address - start) % stride == 0;
        }
    }
    return false;
}

void checkBlocks(const MemoryPool *pool, Finding *finding) {
    CodUint64 count = 0;
    forEachBlock(pool, [&](const MpoolBlockCtrl *block, CodUint8 continuityCode) {
        const CodUint8 type = loadType(block);
        if (block->magicNum != MPOOL_BLOCK_MAGIC) {
            finding->set("block %lu has the magic number %08x", count, block->magicNum);
        } else if (block->pool != pool) {
            finding->set("block %lu belongs to another pool", count);
        } else if (block->continuityCode != continuityCode) {
            finding->set("block %lu has the continuity code %u instead of %u", count, block->continuityCode, continuityCode);
        } else if (type != MPOOL_BLOCK_TYPE_CONTEXT && type != MPOOL_BLOCK_TYPE_PLAIN) {
            finding->set("block %lu has the type %u", count, type);
        }
        count++;
        return finding->text[0] == '\0';
    });
    if (finding->text[0] == '\0' && count != pool->blockCount) {
        finding->set("the buffers hold %lu blocks instead of %u", count, pool->blockCount);
    }
}

void checkFreeList(const MemoryPool *pool, Finding *finding) {
    const MpoolBlockCtrlList &list = pool->freeBlocks;
    const MpoolBlockCtrl *last = nullptr;
    CodUint64 count = 0;
    for (const MpoolBlockCtrl *block = list.head; block != nullptr; block = block->next) {
        if (!isBlockOf(pool, block)) {
            return finding->set("the free list leads out of the pool behind %lu blocks", count);
        }
        if (loadType(block) != MPOOL_BLOCK_TYPE_PLAIN) {
            return finding->set("a block of the free list has the type %u", loadType(block));
        }
        last = block;
        // A list longer than the pool runs in a circle.
        if (++count > pool->blockCount) {
            break;
        }
    }
    if (count != list.count) {
        finding->set("the free list holds %s%lu blocks instead of %u", count > pool->blockCount ? "more than " : "",
                     std::min<CodUint64>(count, pool->blockCount), list.count);
    } else if (last != list.tail) {
        finding->set("the free list does not end at its tail");
    }
}

void countContext(const MpoolBlockCtrl *block, MpoolReport *report) {
    const auto *bytes = reinterpret_cast<const CodUint8 *>(block);
    const auto code = cod::loadShared<CodUint16>(bytes + offsetof(MpoolBlockCtrl, customCode));
    report->contexts++;
    report->abandonedBytes += cod::loadShared<CodUint64>(block->block + offsetof(MemoryContext, abandonedBytes));
    auto *const end = report->codes + report->codeCount;
    auto *row = std::find_if(report->codes, end, [code](const auto &known) { return known.customCode == code; });
    if (row == end) {
        if (report->codeCount == MPOOL_REPORT_CODES) {
            report->otherContexts++;
            return;
        }
        report->codeCount++;
        row->customCode = code;
    }
    row->contexts++;
}

}  // namespace

CodResult mpoolVerify(MemoryPool *pool) {
    if (pool == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    Finding finding;
    {
        const cod::PoolLock lock(pool);
        checkBlocks(pool, &finding);
        if (finding.text[0] == '\0') {
            checkFreeList(pool, &finding);
        }
    }
    if (finding.text[0] != '\0') {
        char text[sizeof finding.text + MPOOL_NAME_SIZE + 16];
        snprintf(text, sizeof text, "memory pool %s: %s", pool->name, finding.text);
        return codRaise(ERR_CMM_INTERNAL_ERROR, text);
    }
    return COD_SUCCESS;
}

CodResult mpoolReport(MemoryPool *pool, MpoolReport *report) {
    if (pool == nullptr || report == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    *report = {};
    const cod::PoolLock lock(pool);
    for (const MpoolBuffer *buffer = pool->buffer; buffer != nullptr; buffer = buffer->next) {
        report->bytes += buffer->size;
    }
    report->blockSize = pool->blockSize;
    report->blockCount = pool->blockCount;
    report->freeBlocks = pool->freeBlocks.count;
    report->usedBlocks = pool->blockCount - pool->freeBlocks.count;
    report->peakUsedBlocks = pool->freeBlocks.reserved;
    report->stats = pool->poolStats;
    forEachBlock(pool, [report](const MpoolBlockCtrl *block, CodUint8) {
        if (loadType(block) == MPOOL_BLOCK_TYPE_CONTEXT) {
            countContext(block, report);
        }
        return true;
    });
    return COD_SUCCESS;
}
