// Workers.h - how many threads compress: one number for the process, and the one-time question for the processor count.
#pragma once

#include <cstdint>

namespace vorn {

constexpr uint32_t MAX_WORKERS = 32;

// Sets the worker count to the processor count, at most 32, when it is first called in the process.
void QueryProcessors();
// 1 to 32; 1 until QueryProcessors.
uint32_t WorkerCount();
// Returns the count before; changes it if `count` is 1 to 32.
uint32_t ExchangeWorkerCount(uint32_t count);

} // namespace vorn
