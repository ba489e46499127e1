#include "tools/p11fwd/fwd_link.h"

#include "tools/p11fwd/fwd_host_process.h"

#include <windows.h>
#include <bcrypt.h>

#include <string>

namespace nivra::p11fwd {
namespace {

// Where the helper listens: the environment variable if set (it must then be valid), else the
// default port on the loopback address.
bool ResolveHelper(p11wire::WireAddress* address) {
  char value[128];
  DWORD n = GetEnvironmentVariableA(kHelperVariable, value, sizeof value);
  if (n == 0) {
    *address = p11wire::WireAddress{"127.0.0.1", p11wire::kWireDefaultPort};
    return true;
  }
  return n < sizeof value && p11wire::ParseWireAddress(std::string(value, n), address);
}

// Identifies this process to the helper, which groups its connections by it; random, so that
// processes of different Wine prefixes never collide.
uint64_t NewClientId() {
  uint64_t id = 0;
  BCryptGenRandom(nullptr, reinterpret_cast<PUCHAR>(&id), sizeof id,
                  BCRYPT_USE_SYSTEM_PREFERRED_RNG);
  return id ^ (static_cast<uint64_t>(GetCurrentProcessId()) << 32);
}

p11wire::WirePooledTransport& Transport() {
  static p11wire::WirePooledTransport transport(ResolveHelper, NewClientId(), HostProcessId());
  return transport;
}

}  // namespace

p11wire::WireClient& Link() {
  static p11wire::WireClient client(&Transport());
  return client;
}

void CloseIdleConnections() { Transport().CloseIdle(); }

}  // namespace nivra::p11fwd
