// Allocator.cpp - which upgrades does the budget buy?
// The queue is a binary heap in the caller's room. Its order is total, since no two entries share a sequence number, so
// what comes out doesn't depend on how the heap lies in memory.
//
// Most upgrades never see the queue. Where no record's values rise from step to step, as in a hull, the steps are bought in
// the order of their values, whatever record they belong to. So their costs are added up in classes of nearly the same value,
// and classes are bought as a whole from the best one down. Only in the class in which the budget ends does the order matter;
// the queue takes over there, as it would stand at that moment. What is left of it is its order among equal values.
#include <algorithm>
#include <cmath>
#include <cstring>

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

uint32_t StepBits(const BlockRecord& record, int step) {
    return record.bits[step + 1] - record.bits[step];
}

// Error saved per 1/256 bit by the step from candidate `step` to the next.
double StepValue(const BlockRecord& record, int step) {
    return static_cast<double>(record.errors[step] - record.errors[step + 1]) /
           static_cast<double>(StepBits(record, step));
}

// Prices the step from the current candidate to the next; false if there is none.
bool PriceUpgrade(BlockRecord* record, double* value) {
    const int choice = record->choice;
    if (choice + 1 >= record->count) return false;
    record->upgradeBits = StepBits(*record, choice);
    *value = StepValue(*record, choice);
    return true;
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

// Enters a record's next upgrade behind all others; it takes its place in the heap later.
void Enter(UpgradeQueue* queue, uint32_t record, double value) {
    queue->entries[queue->count++] = {value, queue->nextSequence++, record};
}

// Buys from the front of the queue, whose entries stand in no order yet, until `left` is spent.
void BuyFromQueue(UpgradeQueue* queue, BlockRecord* records, int64_t left) {
    for (uint32_t i = queue->count / 2; i > 0; i--) SiftDown(queue, i - 1);
    while (left > 0 && queue->count > 0) {
        BlockRecord* record = &records[queue->entries[0].record];
        left -= record->upgradeBits;
        record->choice++;
        AdvanceFirst(queue, record);
    }
}

// Classes of value: 32 an octave, from 2^-32 to 2^16, and all that is lower or higher in the first and the last.
constexpr int CLASSES = 32 * 48;

int ClassOf(double value) {
    constexpr int64_t LOWEST = int64_t{1023 - 32} << 5;
    uint64_t word;
    std::memcpy(&word, &value, sizeof word);
    return static_cast<int>(std::clamp<int64_t>(static_cast<int64_t>(word >> 47) - LOWEST, 0, CLASSES - 1));
}

// Adds up what the steps of each class cost. False if a record's values rise somewhere.
bool PriceClasses(uint64_t costs[CLASSES], const BlockRecord* records, uint32_t recordCount) {
    std::memset(costs, 0, CLASSES * sizeof *costs);
    bool falling = true;
    for (uint32_t i = 0; i < recordCount; i++) {
        double before = HUGE_VAL;
        for (int step = 0; step + 1 < records[i].count; step++) {
            const double value = StepValue(records[i], step);
            falling &= value <= before;
            before = value;
            costs[ClassOf(value)] += StepBits(records[i], step);
        }
    }
    return falling;
}

// Whether the next upgrade of record `a` was entered before that of record `b`: the first ones of all were entered in the
// order of the records, every other one when the step before it was bought. Steps are bought by value, equal ones in the
// order in which they were entered.
bool EnteredBefore(const BlockRecord* records, uint32_t a, uint32_t b) {
    int stepA = records[a].choice;
    int stepB = records[b].choice;
    while (stepA > 0 && stepB > 0) {
        const double valueA = StepValue(records[a], --stepA);
        const double valueB = StepValue(records[b], --stepB);
        if (valueA != valueB) return valueA > valueB;
    }
    return stepA == stepB ? a < b : stepA < stepB;
}

// Buys whole classes as long as `left` isn't spent, and leaves in the queue the upgrades of the class in which it would be.
// Returns what is left.
int64_t BuyClasses(UpgradeQueue* queue, BlockRecord* records, uint32_t recordCount, const uint64_t costs[CLASSES],
                   int64_t left) {
    int last = CLASSES - 1; // the class in which the budget ends
    while (last >= 0 && costs[last] < static_cast<uint64_t>(left)) left -= static_cast<int64_t>(costs[last--]);
    for (uint32_t i = 0; i < recordCount; i++) {
        double value;
        int reached = -1;
        while (PriceUpgrade(&records[i], &value) && (reached = ClassOf(value)) > last) records[i].choice++;
        if (records[i].choice + 1 < records[i].count && reached == last) Enter(queue, i, value);
    }
    std::sort(queue->entries, queue->entries + queue->count, [=](const QueuedUpgrade& a, const QueuedUpgrade& b) {
        return EnteredBefore(records, a.record, b.record);
    });
    for (uint32_t i = 0; i < queue->count; i++) queue->entries[i].sequence = i;
    return left;
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
// the steps bought are the best ones of the frame. Linear in the candidates, but for the few upgrades that are queued; records
// that aren't hulls all go through the queue, (n + m) log n for n records and m upgrades.
void AllocateBits(BlockRecord* records, uint32_t recordCount, uint32_t budgetBytes, QueuedUpgrade* queue) {
    UpgradeQueue upgrades = {queue, 0, 0};
    int64_t left = std::min<int64_t>(int64_t{budgetBytes} * COST_UNITS_PER_BYTE, LARGEST_BUDGET);
    for (uint32_t i = 0; i < recordCount; i++) {
        left -= records[i].bits[0];
        records[i].choice = 0;
    }
    uint64_t costs[CLASSES];
    if (left > 0 && PriceClasses(costs, records, recordCount)) {
        left = BuyClasses(&upgrades, records, recordCount, costs, left);
    } else if (left > 0) {
        for (uint32_t i = 0; i < recordCount; i++) {
            double value;
            if (PriceUpgrade(&records[i], &value)) Enter(&upgrades, i, value);
        }
    }
    BuyFromQueue(&upgrades, records, left);
    for (uint32_t i = 0; i < recordCount; i++) TakeChoice(&records[i]);
}

} // namespace vorn
