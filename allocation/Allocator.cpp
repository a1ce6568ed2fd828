// Allocator.cpp - which upgrades does the budget buy?
// The queue is a binary heap in the caller's room. Its order is total, since no two entries share a sequence number, so
// what comes out doesn't depend on how the heap lies in memory.
#include <algorithm>
#include <utility>

#include "allocation/Allocation.h"

namespace vorn {

namespace {

constexpr int64_t LARGEST_BUDGET = 0x7fffffff; // 1/256 bit

struct UpgradeQueue {
    QueuedUpgrade* entries; // entry i comes before entries 2i + 1 and 2i + 2
    uint32_t count;
    uint32_t nextSequence;
};

bool ComesBefore(const QueuedUpgrade& a, const QueuedUpgrade& b) {
    return a.value > b.value || (a.value == b.value && a.sequence < b.sequence);
}

// Moves entry `at` down to where it belongs.
void SiftDown(UpgradeQueue* queue, uint32_t at) {
    const QueuedUpgrade moving = queue->entries[at];
    for (;;) {
        uint32_t child = 2 * at + 1;
        if (child >= queue->count) break;
        if (child + 1 < queue->count && ComesBefore(queue->entries[child + 1], queue->entries[child])) child++;
        if (!ComesBefore(queue->entries[child], moving)) break;
        queue->entries[at] = queue->entries[child];
        at = child;
    }
    queue->entries[at] = moving;
}

// Prices the step from the current candidate to the next; false if there is none.
bool PriceUpgrade(BlockRecord* record, double* value) {
    const int choice = record->choice;
    if (choice + 1 >= record->count) return false;
    record->upgradeBits = record->bits[choice + 1] - record->bits[choice];
    *value = static_cast<double>(record->errors[choice] - record->errors[choice + 1]) /
             static_cast<double>(record->upgradeBits);
    return true;
}

// Puts every record at its cheapest candidate and enters its first upgrade; returns what the candidates cost together.
int64_t StartQueue(UpgradeQueue* queue, BlockRecord* records, uint32_t recordCount) {
    int64_t spent = 0;
    for (uint32_t i = 0; i < recordCount; i++) {
        spent += records[i].bits[0];
        records[i].choice = 0;
        double value;
        if (PriceUpgrade(&records[i], &value)) queue->entries[queue->count++] = {value, queue->nextSequence++, i};
    }
    for (uint32_t i = queue->count / 2; i > 0; i--) SiftDown(queue, i - 1);
    return spent;
}

// Puts the record's next upgrade in the place of the first entry, or takes that out.
void AdvanceFirst(UpgradeQueue* queue, BlockRecord* record) {
    double value;
    if (PriceUpgrade(record, &value)) {
        queue->entries[0] = {value, queue->nextSequence++, queue->entries[0].record};
    } else {
        queue->count--;
        queue->entries[0] = queue->entries[queue->count];
    }
    if (queue->count > 1) SiftDown(queue, 0);
}

void TakeChoice(BlockRecord* record) {
    const int choice = record->choice;
    record->chosenMode = record->modes[choice];
    record->chosenPayload = record->payloads[choice];
    record->chosenBits = record->bits[choice];
    record->chosenError = record->errors[choice];
}

} // namespace

// Greedy, and best possible but for the last step: lists are hulls, so a record's values never rise from step to step and
// the steps bought are the best ones of the frame. (n + m) log n for n records and m upgrades, m at most 31 n.
void AllocateBits(BlockRecord* records, uint32_t recordCount, uint32_t budgetBytes, QueuedUpgrade* queue) {
    UpgradeQueue upgrades = {queue, 0, 0};
    int64_t left = std::min<int64_t>(int64_t{budgetBytes} * COST_UNITS_PER_BYTE, LARGEST_BUDGET);
    left -= StartQueue(&upgrades, records, recordCount);
    while (left > 0 && upgrades.count > 0) {
        BlockRecord* record = &records[queue[0].record];
        left -= record->upgradeBits;
        record->choice++;
        AdvanceFirst(&upgrades, record);
    }
    for (uint32_t i = 0; i < recordCount; i++) TakeChoice(&records[i]);
}

} // namespace vorn
