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

// A list of up to 32 entries, as a hull with its steps in order of falling value; small steps give many upgrades of equal value.
BlockRecord RandomRecord(std::mt19937* random, uint32_t step, bool hull) {
    BlockRecord record = {};
    record.count = static_cast<int8_t>(1 + Draw(random, MAX_CANDIDATES));
    std::vector<std::pair<uint32_t, uint32_t>> steps; // bits, error saved
    for (int i = 1; i < record.count; i++) steps.push_back({1 + Draw(random, step), 1 + Draw(random, step)});
    const auto better = [](const auto& a, const auto& b) {
        return uint64_t{a.second} * b.first > uint64_t{b.second} * a.first;
    };
    if (hull) std::stable_sort(steps.begin(), steps.end(), better);
    steps.push_back({0, 0});
    uint32_t bits = Draw(random, 2000);
    uint32_t error = 16000;
    for (size_t i = 0; i < steps.size(); i++) {
        record.bits[i] = bits;
        record.errors[i] = error;
        record.modes[i] = static_cast<uint8_t>(Draw(random, 10));
        record.payloads[i] = static_cast<uint16_t>((*random)());
        bits += steps[i].first;
        error -= steps[i].second;
    }
    return record;
}

// Allocation by an ordered multimap from the negated value. Returns the choices.
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
        for (size_t i = 0; i < count; i++) records.push_back(RandomRecord(&random, steps[round % 4], round % 3 != 0));
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
    constexpr uint32_t DEAR = 0x7ffff000; // one upgrade may carry the total over the budget, here over all 31 bits
    constexpr uint32_t PAID = 0x7ffff800; // what 2^20 - 1 bytes pay for; from 2^20 on every budget is the same
    const struct {
        std::vector<uint32_t> bits; // errors are 300, 200, 100
        uint32_t budget;
        std::vector<int> choices; // of one record or two that are alike
    } cases[] = {
        {{2048, 4096, 6144}, 0, {0, 0}},
        {{2048, 4096, 6144}, 2, {0, 0}}, // just what the cheapest cost: nothing left to spend
        {{2048, 4096, 6144}, 3, {1, 0}}, // all values are equal: the first entered is bought first
        {{2048, 4096, 6144}, 4, {1, 1}},
        {{2048, 4096, 6144}, 5, {2, 1}},
        {{2048, 4096, 6144}, 0xffffffff, {2, 2}},
        {{2048, DEAR, DEAR + 1}, 2, {1}},
        {{PAID, 0x80000000}, 1048575, {0}},
        {{PAID, 0x80000000}, 1048576, {1}},
        {{0x7fffffff, 0x80000000}, 0xffffffff, {0}},
    };
    for (const auto& one : cases) {
        BlockRecord record = {};
        record.count = static_cast<int8_t>(one.bits.size());
        for (size_t i = 0; i < one.bits.size(); i++) {
            record.bits[i] = one.bits[i];
            record.errors[i] = static_cast<uint32_t>(300 - 100 * i);
        }
        std::vector<BlockRecord> records(one.choices.size(), record);
        Allocate(&records, one.budget);
        for (size_t i = 0; i < records.size(); i++) EXPECT_EQ(records[i].choice, one.choices[i]) << &one - cases;
    }
}
