// Workers.cpp - how many threads may compress?
#include "platform/Workers.h"

#include <algorithm>
#include <atomic>

#include "platform/Platform.h"

namespace vorn {

namespace {

std::atomic<uint32_t> workerCount{1};

bool StoreProcessorCount() {
    const uint32_t processors = platform->processorCount();
    if (processors != 0) workerCount = std::min(processors, MAX_WORKERS);
    return true;
}

} // namespace

void QueryProcessors() {
    // The first caller asks; others that come meanwhile wait for its answer.
    static const bool asked = StoreProcessorCount();
    static_cast<void>(asked);
}

uint32_t WorkerCount() {
    return workerCount;
}

uint32_t ExchangeWorkerCount(uint32_t count) {
    if (count < 1 || count > MAX_WORKERS) return workerCount;
    return workerCount.exchange(count);
}

} // namespace vorn
