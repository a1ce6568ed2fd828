// AllocatorTest.cpp - which upgrades the budget buys, and in which order among equals.
#include "allocation/Allocation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <utility>
#include <vector>

using namespace vorn;

namespace {

// A number from 0 to below - 1.
uint32_t Draw(std::mt19937* random, uint32_t below) {
    return static_cast<uint32_t>((*random)() % below);
}

// A hull of up to 32 entries; small steps give many upgrades of equal value.
BlockRecord RandomRecord(std::mt19937* random, uint32_t step) {
    BlockRecord record = {};
    record.count = static_cast<int8_t>(1 + Draw(random, MAX_CANDIDATES));
    uint32_t bits = Draw(random, 2000);
    uint32_t error = 16000;
    for (int i = 0; i < record.count; i++) {
        record.bits[i] = bits;
        record.errors[i] = error;
        record.modes[i] = static_cast<uint8_t>(Draw(random, 10));
        record.payloads[i] = static_cast<uint16_t>((*random)());
        bits += 1 + Draw(random, step);
        error -= 1 + Draw(random, step);
    }
    return record;
}

// The same with the steps in order of falling value, as in a hull.
BlockRecord RandomHull(std::mt19937* random, uint32_t step) {
    BlockRecord record = RandomRecord(random, step);
    std::vector<std::pair<uint32_t, uint32_t>> steps; // bits, error saved
    for (int i = 0; i + 1 < record.count; i++) {
        steps.push_back({record.bits[i + 1] - record.bits[i], record.errors[i] - record.errors[i + 1]});
    }
    std::stable_sort(steps.begin(), steps.end(), [](const auto& a, const auto& b) {
        return uint64_t{a.second} * b.first > uint64_t{b.second} * a.first;
    });
    for (size_t i = 0; i < steps.size(); i++) {
        record.bits[i + 1] = record.bits[i] + steps[i].first;
        record.errors[i + 1] = record.errors[i] - steps[i].second;
    }
    return record;
}

// The same by an ordered multimap from the negated value. Returns the choices.
std::vector<int> SlowChoices(const std::vector<BlockRecord>& records, uint32_t budgetBytes) {
    std::multimap<double, size_t> queue;
    std::vector<int> choices(records.size(), 0);
    int64_t left = std::min<int64_t>(int64_t{budgetBytes} * 2048, 0x7fffffff);
    const auto enter = [&](size_t i) {
        const BlockRecord& record = records[i];
        const int k = choices[i];
        if (k + 1 >= record.count) return;
        const double saved = double(record.errors[k]) - double(record.errors[k + 1]);
        queue.insert({-(saved / (double(record.bits[k + 1]) - double(record.bits[k]))), i});
    };
    for (size_t i = 0; i < records.size(); i++) {
        left -= records[i].bits[0];
        enter(i);
    }
    while (left > 0 && !queue.empty()) {
        const size_t i = queue.begin()->second;
        queue.erase(queue.begin());
        left -= int64_t{records[i].bits[choices[i] + 1]} - records[i].bits[choices[i]];
        choices[i]++;
        enter(i);
    }
    return choices;
}

void Allocate(std::vector<BlockRecord>* records, uint32_t budget) {
    std::vector<QueuedUpgrade> room(records->size());
    AllocateBits(records->data(), static_cast<uint32_t>(records->size()), budget, room.data());
}

} // namespace

// Hulls in two rounds of three; in the third values rise and fall.
TEST(Allocator, EqualsMultimap) {
    std::mt19937 random(7);
    for (int round = 0; round < 600; round++) {
        const uint32_t steps[] = {2, 3, 9, 200};
        std::vector<BlockRecord> records;
        const size_t count = random() % 200;
        for (size_t i = 0; i < count; i++) {
            const bool hull = round % 3 != 0;
            records.push_back(hull ? RandomHull(&random, steps[round % 4]) : RandomRecord(&random, steps[round % 4]));
        }
        uint64_t most = 0;
        for (const BlockRecord& record : records) most += record.bits[record.count - 1];
        const uint32_t budget = static_cast<uint32_t>(random() % (most / 2048 + 3));
        const std::vector<int> expected = SlowChoices(records, budget);
        Allocate(&records, budget);
        for (size_t i = 0; i < count; i++) {
            const int choice = expected[i];
            ASSERT_EQ(records[i].choice, choice) << "round " << round << " record " << i;
            EXPECT_EQ(records[i].chosenMode, records[i].modes[choice]);
            EXPECT_EQ(records[i].chosenPayload, records[i].payloads[choice]);
            EXPECT_EQ(records[i].chosenBits, records[i].bits[choice]);
            EXPECT_EQ(records[i].chosenError, records[i].errors[choice]);
        }
    }
}

TEST(Allocator, BudgetsAtTheEdges) {
    BlockRecord step = {};
    step.count = 3;
    const uint32_t bits[] = {2048, 4096, 6144};
    const uint32_t errors[] = {300, 200, 100};
    for (int i = 0; i < 3; i++) {
        step.bits[i] = bits[i];
        step.errors[i] = errors[i];
    }
    const auto choices = [&](uint32_t budget) {
        std::vector<BlockRecord> records = {step, step};
        Allocate(&records, budget);
        return std::vector<int>{records[0].choice, records[1].choice};
    };
    EXPECT_EQ(choices(0), (std::vector<int>{0, 0}));
    EXPECT_EQ(choices(2), (std::vector<int>{0, 0})); // just what the cheapest cost: nothing left to spend
    EXPECT_EQ(choices(3), (std::vector<int>{1, 0})); // all values are equal: the first entered is bought first
    EXPECT_EQ(choices(4), (std::vector<int>{1, 1}));
    EXPECT_EQ(choices(5), (std::vector<int>{2, 1}));
    EXPECT_EQ(choices(0xffffffff), (std::vector<int>{2, 2}));
    step.upgradeBits = 0;
    std::vector<BlockRecord> dear = {step};
    dear[0].bits[1] = 0x7ffff000; // one upgrade may carry the total over the budget, here over all 31 bits
    dear[0].bits[2] = 0x7ffff001;
    Allocate(&dear, 2);
    EXPECT_EQ(dear[0].choice, 1);
}

// From 2^20 bytes on every budget is the same.
TEST(Allocator, BudgetStopsGrowing) {
    BlockRecord huge = {};
    huge.count = 2;
    huge.bits[0] = 0x7fffffff;
    huge.bits[1] = 0x80000000;
    huge.errors[0] = 1;
    for (const uint32_t budget : {1048575u, 1048576u, 0xffffffffu}) {
        std::vector<BlockRecord> records = {huge};
        Allocate(&records, budget);
        EXPECT_EQ(records[0].choice, 0) << budget;
        records[0].bits[0] = 0x7ffff800; // what 2^20 - 1 bytes pay for
        Allocate(&records, budget);
        EXPECT_EQ(records[0].choice, budget > 1048575 ? 1 : 0) << budget;
    }
}
