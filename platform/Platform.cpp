// Platform.cpp - which table is in force?
#include "platform/Platform.h"

namespace vorn {

constinit const Platform* platform = &SYSTEM_PLATFORM;

} // namespace vorn
