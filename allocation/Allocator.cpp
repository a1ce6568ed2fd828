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

void TakeChoice(BlockRecord* record) {
    const int choice = record->choice;
    record->chosenMode = record->modes[choice];
    record->chosenPayload = record->payloads[choice];
    record->chosenBits = record->bits[choice];
    record->chosenError = record->errors[choice];
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
        TakeChoice(record);
        AdvanceFirst(queue, record);
    }
}

// The records of a frame are more than the nearer caches hold, and a look at one takes a little time only: so those to come
// are asked for ahead.
inline void AskAhead(const BlockRecord* records, uint32_t at, uint32_t recordCount) {
    constexpr uint32_t AHEAD = 4;
    if (at + AHEAD >= recordCount) return;
    const BlockRecord& coming = records[at + AHEAD];
    __builtin_prefetch(&coming);
    __builtin_prefetch(coming.bits);
    __builtin_prefetch(coming.bits + MAX_CANDIDATES / 2);
    __builtin_prefetch(coming.errors);
    __builtin_prefetch(coming.errors + MAX_CANDIDATES / 2);
}

// Classes of value: 32 an octave, from 2^-32 to 2^16, and all that is lower or higher in the first and the last.
constexpr int CLASSES = 32 * 48;
constexpr int64_t FIRST_CLASS = int64_t{1023 - 32} << 5; // exponent and upper five bits of the mantissa of 2^-32

int ClassOf(double value) {
    uint64_t word;
    std::memcpy(&word, &value, sizeof word);
    return static_cast<int>(std::clamp<int64_t>(static_cast<int64_t>(word >> 47) - FIRST_CLASS, 0, CLASSES - 1));
}

// The lowest value of a class.
double LowestOf(int valueClass) {
    if (valueClass <= 0) return 0.0;
    if (valueClass >= CLASSES) return HUGE_VAL;
    const uint64_t word = static_cast<uint64_t>(valueClass + FIRST_CLASS) << 47;
    double value;
    std::memcpy(&value, &word, sizeof value);
    return value;
}

// The values of all steps of a record, several at a time. Costs and errors stay far below 2^31.
void ValueSteps(double values[MAX_CANDIDATES], const BlockRecord& record) {
    const int steps = record.count - 1;
    for (int step = 0; step < steps; step++) {
        values[step] = static_cast<double>(static_cast<int32_t>(record.errors[step] - record.errors[step + 1])) /
                       static_cast<double>(static_cast<int32_t>(StepBits(record, step)));
    }
}

// What the records' lists come to.
struct ListTotals {
    uint64_t costs[CLASSES]; // of the steps of each class
    int64_t cheapest;        // of the first candidates together
    bool falling;            // no record's values rise anywhere
};

void AddLists(ListTotals* totals, const BlockRecord* records, uint32_t recordCount) {
    *totals = {};
    bool falling = true;
    for (uint32_t i = 0; i < recordCount; i++) {
        AskAhead(records, i, recordCount);
        totals->cheapest += records[i].bits[0];
        double before = HUGE_VAL;
        double values[MAX_CANDIDATES];
        ValueSteps(values, records[i]);
        for (int step = 0; step + 1 < records[i].count; step++) {
            falling &= values[step] <= before;
            before = values[step];
            totals->costs[ClassOf(values[step])] += StepBits(records[i], step);
        }
    }
    totals->falling = falling;
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
    // Bounds of a class have six bits, so that their products with costs are exact, and no quotient of 32-bit numbers is
    // rounded up to one: a value lies in or above a class if the error saved is no less than the product.
    const double above = LowestOf(last + 1);
    const double within = LowestOf(last);
    for (uint32_t i = 0; i < recordCount; i++) {
        AskAhead(records, i, recordCount);
        BlockRecord* record = &records[i];
        const auto reaches = [record](int step, double value) {
            return static_cast<double>(record->errors[step] - record->errors[step + 1]) >=
                   value * StepBits(*record, step);
        };
        const int steps = record->count - 1;
        int choice = 0;
        while (choice < steps && reaches(choice, above)) choice++;
        record->choice = static_cast<int8_t>(choice);
        double value;
        if (choice < steps && reaches(choice, within) && PriceUpgrade(record, &value)) Enter(queue, i, value);
        TakeChoice(record);
    }
    std::sort(queue->entries, queue->entries + queue->count, [=](const QueuedUpgrade& a, const QueuedUpgrade& b) {
        return EnteredBefore(records, a.record, b.record);
    });
    for (uint32_t i = 0; i < queue->count; i++) queue->entries[i].sequence = i;
    return left;
}

} // namespace

// Greedy, and best possible but for the last step: lists are hulls, so a record's values never rise from step to step and
// the steps bought are the best ones of the frame. Linear in the candidates, but for the few upgrades that are queued; records
// that aren't hulls all go through the queue, (n + m) log n for n records and m upgrades.
void AllocateBits(BlockRecord* records, uint32_t recordCount, uint32_t budgetBytes, QueuedUpgrade* queue) {
    UpgradeQueue upgrades = {queue, 0, 0};
    ListTotals totals;
    AddLists(&totals, records, recordCount);
    int64_t left = std::min<int64_t>(int64_t{budgetBytes} * COST_UNITS_PER_BYTE, LARGEST_BUDGET) - totals.cheapest;
    if (left > 0 && totals.falling) {
        left = BuyClasses(&upgrades, records, recordCount, totals.costs, left);
    } else {
        for (uint32_t i = 0; i < recordCount; i++) {
            double value;
            records[i].choice = 0;
            TakeChoice(&records[i]);
            if (left > 0 && PriceUpgrade(&records[i], &value)) Enter(&upgrades, i, value);
        }
    }
    BuyFromQueue(&upgrades, records, left);
}

} // namespace vorn
