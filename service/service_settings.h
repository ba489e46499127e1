// Where the local card service is reached and how long its transports wait. The product uses the
// fixed values below; a test build of the provider may replace them once, before any connection
// is made (ServiceSettingsOverride), so that its runs neither collide with each other nor touch
// the product's port.
#pragma once
#include <cstdint>

namespace nivra::service {

struct ServiceSettings {
  const wchar_t* host = L"127.0.0.1";
  uint16_t port = 45451;
  int connectTimeoutMs = 60000;
  int requestTimeoutMs = 60000;
  int keyGenTimeoutMs = 90000;    // key generation on the card takes longer
  int monitorStepsWhileUp = 200;  // of 100 ms: a probe every 20 s while the service answers
  int monitorStepsWhileDown = 5;  // and every 0.5 s while it does not
  bool systemProviderDecrypt = true;  // false: the handshake uses only the library's own key op
  uint16_t cardPort = 45452;       // a service card's own port, on the address the card list gives
  int presenceTimeoutMs = 100;     // connecting to look a device up by name: is the service there?
  int confirmWaitMs = 120000;      // how long a confirmation on the device is waited for
  int confirmPollMs = 1000;        // how often the device is asked meanwhile
};

const ServiceSettings& Settings();

// Replaces the settings; for test builds, from a static initialiser.
void ServiceSettingsOverride(const ServiceSettings& settings);

}  // namespace nivra::service
