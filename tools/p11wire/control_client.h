#pragma once
// The client of the helper's control interface (test controls such as token removal, extra
// slots and call counters; the command texts are listed in tools/p11helper/control_commands.h).
#include <cstdint>
#include <string>

#include "tools/p11wire/wire_client.h"

namespace nivra::p11wire {

// Sends one text command on a connection of its own. Returns the helper's status (0 for success,
// a PKCS#11 value for a refused command, kWireLinkFailure when the helper cannot be reached) and
// its answer text.
uint32_t SendControlCommand(const WireAddress& address, const std::string& command,
                            std::string* answer);

}  // namespace nivra::p11wire
