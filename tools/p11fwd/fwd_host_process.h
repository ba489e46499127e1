#pragma once
// The id of this process on the host that runs Wine.
#include <cstdint>

namespace nivra::p11fwd {

// The host's process id when the module runs under Wine on Linux (where a Windows process is a
// host process), else 0. The helper asks the host whether that process still runs, since Wine's
// server may keep a finished process's sockets open.
uint32_t HostProcessId();

}  // namespace nivra::p11fwd
