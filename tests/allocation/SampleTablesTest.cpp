// SampleTablesTest.cpp - counts against a sample-by-sample form of each rule.
#include "allocation/SampleTables.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

using namespace vorn;

namespace {

template <class Rule> SampleTable SlowCount(const std::vector<uint8_t>& plane, Rule counts) {
    SampleTable table = {};
    for (size_t i = 0; i < plane.size(); i++) {
        if (!counts(i)) continue;
        table.counts[plane[i]]++;
        table.total++;
    }
    return table;
}

void ExpectEqual(const SampleTable& made, const SampleTable& slow) {
    EXPECT_EQ(made.total, slow.total);
    EXPECT_EQ(std::memcmp(made.counts, slow.counts, sizeof made.counts), 0);
}

} // namespace

// From small steps over coarse ones to noise and extremes, in which differences don't fit a signed byte.
TEST(SampleTables, EqualTheRulesSampleBySample) {
    std::mt19937 random(9);
    for (int round = 0; round < 60; round++) {
        std::vector<uint8_t> plane(64 * (1 + random() % 5)), other(plane.size());
        const uint32_t span = round % 4 == 3 ? 2 : 1u << (1 + random() % 8);
        const uint32_t scale = round % 4 == 3 ? 255 : 1;
        for (size_t i = 0; i < plane.size(); i++) {
            plane[i] = static_cast<uint8_t>(random() % span * scale);
            other[i] = static_cast<uint8_t>(random() % 3 ? random() % span * scale : plane[i]);
            if (i > 0 && random() % 4 == 0) plane[i] = plane[i - 1];
        }
        const auto distance = [&](size_t i) { return std::abs(int{plane[i]} - int{other[i]}); };
        const auto unlike = [&](size_t i) { return i == 0 || plane[i] != plane[i - 1]; };
        SampleTable table;
        CountAll(&table, plane.data(), plane.size());
        ExpectEqual(table, SlowCount(plane, [](size_t) { return true; }));
        CountChanged(&table, plane.data(), other.data(), plane.size());
        ExpectEqual(table, SlowCount(plane, [&](size_t i) { return distance(i) > 2; }));
        CountColours(&table, plane.data(), nullptr, plane.size());
        ExpectEqual(table, SlowCount(plane, unlike));
        CountColours(&table, plane.data(), other.data(), plane.size());
        ExpectEqual(table, SlowCount(plane, [&](size_t i) { return unlike(i) && distance(i) > 1; }));
    }
}
