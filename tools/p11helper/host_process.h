#pragma once
// Whether a client's process still runs, asked of the host.
#include <cstdint>

namespace nivra::p11helper {

// True when the host has no running process `processId` (gone, or ended and not yet reaped).
// False for 0, which stands for a client that did not say.
bool HostProcessGone(uint32_t processId);

}  // namespace nivra::p11helper
