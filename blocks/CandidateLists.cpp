// CandidateLists.cpp - thinning by number, and the way of lists into records and back.
#include "blocks/CandidateLists.h"

#include <cassert>

namespace vorn {

int LimitList(BlockCandidate* list, int count, int limit) {
    if (count <= limit) return count;
    if (limit <= 1) return limit;
    // An entry's source lies at or behind it, so nothing is overwritten before it is read.
    for (int k = 1; k < limit; k++) list[k] = list[(count - 1) * k / (limit - 1)];
    return limit;
}

void StoreList(BlockRecord* record, const BlockCandidate* list, int count, uint32_t overhead) {
    assert(count >= 0 && count <= MAX_CANDIDATES);
    record->count = static_cast<int8_t>(count);
    for (int i = 0; i < count; i++) {
        record->modes[i] = list[i].mode;
        record->payloads[i] = list[i].payload;
        record->bits[i] = list[i].bits + overhead;
        record->errors[i] = list[i].error;
    }
}

int FetchList(const BlockRecord* record, BlockCandidate* list) {
    for (int i = 0; i < record->count; i++) {
        list[i] = {record->bits[i], record->errors[i], record->payloads[i], record->modes[i]};
    }
    return record->count;
}

} // namespace vorn
