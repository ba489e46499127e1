// Linked only into the test build of the provider (nivracsp_svctest.dll): the card service is
// reached on the port that NIVRA_TEST_SERVICE_PORT names, never on the product's, and requests
// give up after seconds instead of a minute, so that concurrent test runs never meet and a
// silent service fails a test quickly.
#include <windows.h>

#include <cstdlib>

#include "service/service_settings.h"

namespace {

constexpr wchar_t kPortVariable[] = L"NIVRA_TEST_SERVICE_PORT";
constexpr int kTestConnectTimeoutMs = 5000;
constexpr int kTestRequestTimeoutMs = 20000;
constexpr int kTestKeyGenTimeoutMs = 60000;

struct TestEndpoint {
  TestEndpoint() {
    nivra::service::ServiceSettings settings;
    wchar_t value[16] = {};
    const DWORD length = GetEnvironmentVariableW(kPortVariable, value, 16);
    // No port named: port 0, which nothing answers, so the product's service is never reached.
    settings.port = length > 0 && length < 16 ? static_cast<uint16_t>(wcstoul(value, nullptr, 10))
                                              : 0;
    settings.connectTimeoutMs = kTestConnectTimeoutMs;
    settings.requestTimeoutMs = kTestRequestTimeoutMs;
    settings.keyGenTimeoutMs = kTestKeyGenTimeoutMs;
    nivra::service::ServiceSettingsOverride(settings);
  }
} g_testEndpoint;

}  // namespace
