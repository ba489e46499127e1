#pragma once
// For the Windows tests: nivrap11fwd.dll loaded with LoadLibrary and pointed at the helper that
// the CTest fixture started (its port is in the fixture directory), and the helper's controls.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/p11fwd/wire_test_values.h"
#include "tools/p11wire/control_client.h"
#include "tools/p11wire/pkcs11_abi.h"

namespace nivra::p11test {

// Label and PINs of the token that the fixture initialised.
inline constexpr char kFixtureTokenLabel[] = "nivra-fwd";
inline constexpr char kFixtureUserPin[] = "1234";

// The helper's address from the fixture, also exported as NIVRA_P11_HELPER for the module.
p11wire::WireAddress FixtureHelper();

// The module's function list; null (with a test failure) when it cannot be loaded.
CK_FUNCTION_LIST* ForwardingModule();

// Runs a control command; a refused command fails the current test.
std::string HelperControl(const std::string& command);

// Writes a result for the native checks that run after the Windows tests.

// Base of the Windows tests: the module is initialised, the helper has no injected conditions,
// and slot_ is the fixture token's slot.
class ForwardedTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  // Opens a read/write session on the token; 0 (and a failure) if that fails.
  CK_SESSION_HANDLE OpenSession();
  CK_FUNCTION_LIST* f_ = nullptr;
  CK_SLOT_ID slot_ = 0;
};

}  // namespace nivra::p11test
