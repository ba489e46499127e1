// Linked only into the test build of the provider (nivracsp_svctest.dll): the card service is
// reached on the port that NIVRA_TEST_SERVICE_PORT names, never on the product's, service cards
// on the port that NIVRA_TEST_CARD_PORT names, and requests give up after seconds instead of a
// minute (a confirmation on a device after a few seconds instead of two minutes), so that
// concurrent test runs never meet and a silent service fails a test quickly.
#include <windows.h>

#include <cstdint>
#include <cstdlib>

#include "service/service_settings.h"

namespace {

constexpr wchar_t kPortVariable[] = L"NIVRA_TEST_SERVICE_PORT";
constexpr wchar_t kCardPortVariable[] = L"NIVRA_TEST_CARD_PORT";
constexpr int kTestConfirmWaitMs = 4000;
constexpr int kTestConfirmPollMs = 250;
constexpr int kTestConnectTimeoutMs = 5000;
constexpr int kTestRequestTimeoutMs = 20000;
constexpr int kTestKeyGenTimeoutMs = 60000;

// The port a variable names; 0 (which nothing answers) when it names none.
uint16_t PortFrom(const wchar_t* variable) {
  wchar_t value[16] = {};
  const DWORD length = GetEnvironmentVariableW(variable, value, 16);
  return length > 0 && length < 16 ? static_cast<uint16_t>(wcstoul(value, nullptr, 10)) : 0;
}

struct TestEndpoint {
  TestEndpoint() {
    nivra::service::ServiceSettings settings;
    // No port named: port 0, so the product's service and cards are never reached.
    settings.port = PortFrom(kPortVariable);
    settings.cardPort = PortFrom(kCardPortVariable);
    settings.confirmWaitMs = kTestConfirmWaitMs;
    settings.confirmPollMs = kTestConfirmPollMs;
    settings.connectTimeoutMs = kTestConnectTimeoutMs;
    settings.requestTimeoutMs = kTestRequestTimeoutMs;
    settings.keyGenTimeoutMs = kTestKeyGenTimeoutMs;
    nivra::service::ServiceSettingsOverride(settings);
  }
} g_testEndpoint;

}  // namespace
