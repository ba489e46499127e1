// Base of the tests that run the back end against the fake PKCS#11 module (p11fake.dll).
//
// The back end's state lives for the process (the module is loaded and initialised once), so
// every case needs a process of its own: CTest runs each case separately; by hand, pick one case
// with --gtest_filter. A second case in one process fails at once and says so.
#pragma once
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fake_module/fake_control.h"
#include "machine_hive.h"
#include "provider/provider_context.h"
#include "provider/status_codes.h"

namespace nivra::p11test {

using Bytes = std::vector<uint8_t>;

// The fake's slot monitor waits for events that the test raises, unless a test says otherwise.
class FakeBackendTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // The path configured as "LibPkcs11" before the first acquire (the fake by default).
  virtual std::wstring ModulePath() const;

  // The back end's start-up, as every acquire runs it; 0 when the module is available.
  provider::Status StartBackend();

  // NivraCPAcquireContext; the last error (0 on success). Contexts are released at the end.
  DWORD Acquire(const std::string& container, DWORD flags, HCRYPTPROV* prov = nullptr);
  provider::ProviderContext& Context(HCRYPTPROV prov);
  // Logs the user in on the slot's shared session (a verify context on the slot and the PIN
  // parameter), so that creating containers and keys needs no PIN dialog.
  void LoginOnSlot(const std::string& slotName);

  // Objects on the fake token of slot `index` that match the attributes, seen through a session
  // of the test's own (private objects only while the user is logged in).
  std::vector<CK_OBJECT_HANDLE> FindOnToken(uint32_t index, std::vector<CK_ATTRIBUTE> query);
  Bytes AttributeOf(uint32_t index, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type);
  // Creates an object on slot `index`'s token through the fake's own function list.
  CK_OBJECT_HANDLE CreateOnToken(uint32_t index, std::vector<CK_ATTRIBUTE> attributes);
  // Closes the sessions the three helpers above opened (a token is initialised only without).
  void CloseTestSessions();

  FakeModuleControl fake;
  PrivateMachineHive hive;
  std::vector<HCRYPTPROV> opened;

 private:
  CK_SESSION_HANDLE TestSession(uint32_t index);
  std::vector<CK_SESSION_HANDLE> sessions_;
};

// Attribute helpers for templates written in tests.
CK_ATTRIBUTE Attr(CK_ATTRIBUTE_TYPE type, const void* value, size_t length);
CK_ATTRIBUTE Text(CK_ATTRIBUTE_TYPE type, const char* text);
Bytes Ulong32(CK_ULONG value);
Bytes TextBytes(const std::string& text);

// Published constants of the fake's first slot.
inline constexpr char kSlot0[] = "Fake slot 0";
inline constexpr char kSlot1[] = "Fake slot 1";

}  // namespace nivra::p11test
