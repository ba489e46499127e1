#pragma once
// The helper served in-process for native tests: a scratch SoftHSM2 token, the native module, the
// dispatcher and a server on a free loopback port, made once per test process.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "tests/p11fwd/wire_test_values.h"
#include "tools/p11helper/dispatcher.h"
#include "tools/p11helper/helper_server.h"
#include "tools/p11helper/native_module.h"
#include "tools/p11wire/control_client.h"
#include "tools/p11wire/wire_client.h"

namespace nivra::p11test {

inline constexpr char kUserPin[] = "1234";

class HelperHarness {
 public:
  // The process's harness, started on first use. Check ok() before using anything else.
  static HelperHarness& Get();
  ~HelperHarness();

  bool ok() const { return ok_; }
  const std::string& error() const { return error_; }
  p11wire::WireAddress address() const { return {"127.0.0.1", server_->port()}; }
  // The native module itself, for checks that bypass the helper.
  CK_FUNCTION_LIST* module() { return module_.functions(); }

  // The status of a control command, and its answer.
  uint32_t ControlStatus(const std::string& command, std::string* answer = nullptr);
  // Runs a control command and returns its answer; a refused command fails the current test.
  std::string Control(const std::string& command);

 private:
  HelperHarness();
  // One token in a store of its own (SOFTHSM2_CONF points there), before SoftHSM2 starts.
  bool CreateToken();

  std::string directory_;
  p11helper::NativeModule module_;
  std::unique_ptr<p11helper::Dispatcher> dispatcher_;
  std::unique_ptr<p11helper::HelperServer> server_;
  std::thread serving_;
  bool ok_ = false;
  std::string error_;
};

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
  uint32_t Login(uint32_t session, const std::string& pin);
  // Closes every connection this client has open (as a process that exits would).
  void Disconnect() { transport_.CloseIdle(); }

 private:
  p11wire::WirePooledTransport transport_;
  p11wire::WireClient client_;
};

// Base of the tests that talk to the helper: the harness is up, every injected condition of an
// earlier test is gone (and is dropped again at the end), client_ is initialised, and slot_ holds
// the scratch token.
class HelperTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  HelperHarness& harness() { return HelperHarness::Get(); }
  uint32_t slot32() const { return static_cast<uint32_t>(slot_); }
  CK_SLOT_ID slot_ = 0;
  TestClient client_;
};

}  // namespace nivra::p11test
