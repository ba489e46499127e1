#pragma once
// The module's one link to the helper, shared by every thread of the process.
#include "tools/p11wire/wire_client.h"

namespace nivra::p11fwd {

// Environment variable naming the helper as "127.0.0.1:<port>"; unset means the default port.
inline constexpr char kHelperVariable[] = "NIVRA_P11_HELPER";

// The process's client of the helper. Connections are made on demand; the helper's address is
// read from the environment each time one is opened.
p11wire::WireClient& Link();

// Closes the connections no call is using (after C_Finalize).
void CloseIdleConnections();

}  // namespace nivra::p11fwd
