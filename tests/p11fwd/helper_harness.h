#pragma once
// The helper served in-process for native tests: a scratch SoftHSM2 token, the native module, the
// dispatcher and a server on a free loopback port, made once per test process.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tools/p11helper/native_module.h"
#include "tools/p11wire/wire_client.h"

namespace nivra::p11test {

using Bytes = std::vector<uint8_t>;

// The address of the process's helper, started on first use; port 0 (and `*error` set) when it
// could not start.
p11wire::WireAddress HelperAddress(std::string* error = nullptr);
// The native module itself, for checks that bypass the helper.
CK_FUNCTION_LIST* NativeModule();
// The status of a control command, and its answer.
uint32_t ControlStatus(const std::string& command, std::string* answer = nullptr);
// Runs a control command and returns its answer; a refused command fails the current test.
std::string Control(const std::string& command);
// True when the module knows `session`.
bool ModuleKnows(CK_SESSION_HANDLE session);
// True once the module no longer knows `session`. The helper closes the sessions of a client
// that goes away on its connection thread, so this waits a bounded time for that.
bool ModuleForgets(CK_SESSION_HANDLE session);

// One process as the helper sees it: a client id of its own and its own connections.
class TestClient {
 public:
  TestClient();

  template <p11wire::WireOp op>
  typename p11wire::WireShape<op>::Reply Call(const typename p11wire::WireShape<op>::Request& r) {
    return client_.Call<op>(r);
  }

  uint32_t Initialize() { return Call<p11wire::WireOp::kInitialize>({}).rv; }
  uint32_t Finalize() { return Call<p11wire::WireOp::kFinalize>({}).rv; }
  // Opens a read/write session on `slot`; 0 (and a test failure) when that fails.
  uint32_t OpenSession(CK_SLOT_ID slot);
  // Closes every connection this client has open (as a process that exits would).
  void Disconnect() { transport_.CloseIdle(); }

 private:
  p11wire::WirePooledTransport transport_;
  p11wire::WireClient client_;
};

// Base of the tests that talk to the helper: the helper is up, every injected condition of an
// earlier test is gone (and is dropped again at the end), client_ is initialised, and slot_ holds
// the scratch token.
class HelperTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  uint32_t slot32() const { return static_cast<uint32_t>(slot_); }
  CK_SLOT_ID slot_ = 0;
  TestClient client_;
};

}  // namespace nivra::p11test
