#include "fake_backend_fixture.h"

#include <cstring>

#include "pkcs11/backend_state.h"
#include "provider/entries.h"
#include "provider/handle_registry.h"

namespace nivra::p11test {

namespace {
bool g_caseRan = false;
}  // namespace

void FakeBackendTest::SetUp() {
  ASSERT_FALSE(g_caseRan) << "each case needs a process of its own: run it through CTest or "
                             "with --gtest_filter naming one case";
  g_caseRan = true;
  const std::wstring fakePath = ProgramDirectory() + L"p11fake.dll";
  ASSERT_TRUE(fake.Load(fakePath.c_str())) << "p11fake.dll cannot be loaded";
  fake.Reset();
  // The monitor blocks until a test raises an event, so it never calls the module unasked.
  fake.SetWaitMode(kFakeWaitEvents, CKR_OK);
  hive.SetModulePath(ModulePath());
  hive.Activate();
}

void FakeBackendTest::CloseTestSessions() {
  for (CK_SESSION_HANDLE session : sessions_) fake.functions->C_CloseSession(session);
  sessions_.clear();
}

void FakeBackendTest::TearDown() {
  CloseTestSessions();
  for (HCRYPTPROV prov : opened) NivraCPReleaseContext(prov, 0);
  hive.Deactivate();
}

std::wstring FakeBackendTest::ModulePath() const { return ProgramDirectory() + L"p11fake.dll"; }

provider::Status FakeBackendTest::StartBackend() { return pkcs11::InitPkcs11Backend(); }

DWORD FakeBackendTest::Acquire(const std::string& container, DWORD flags, HCRYPTPROV* prov) {
  HCRYPTPROV handle = 0;
  std::string name = container;
  SetLastError(0xFEED);
  const BOOL ok = NivraCPAcquireContext(&handle, name.data(), flags, nullptr);
  const DWORD error = GetLastError();
  EXPECT_EQ(ok != FALSE, error == 0u) << "TRUE comes with last error 0, FALSE with a code";
  if (ok && handle != 0) opened.push_back(handle);
  if (prov != nullptr) *prov = handle;
  return error;
}

provider::ProviderContext& FakeBackendTest::Context(HCRYPTPROV prov) {
  provider::ProviderContext* ctx = nullptr;
  EXPECT_EQ(provider::LookupContext(prov, &ctx), 0u);
  return *ctx;
}

void FakeBackendTest::LoginOnSlot(const std::string& slotName) {
  HCRYPTPROV prov = 0;
  ASSERT_EQ(Acquire("\\\\.\\" + slotName, CRYPT_VERIFYCONTEXT, &prov), 0u);
  std::string pin = kFakeUserPin;
  ASSERT_TRUE(NivraCPSetProvParam(prov, PP_SIGNATURE_PIN, reinterpret_cast<BYTE*>(pin.data()), 0))
      << std::hex << GetLastError();
}

CK_SESSION_HANDLE FakeBackendTest::TestSession(uint32_t index) {
  CK_SESSION_HANDLE session = 0;
  EXPECT_EQ(fake.functions->C_OpenSession(kFakeFirstSlotId + index,
                                          CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                                          &session),
            CKR_OK);
  sessions_.push_back(session);
  return session;
}

std::vector<CK_OBJECT_HANDLE> FakeBackendTest::FindOnToken(uint32_t index,
                                                           std::vector<CK_ATTRIBUTE> query) {
  CK_FUNCTION_LIST* f = fake.functions;
  CK_SESSION_HANDLE session = TestSession(index);
  std::vector<CK_OBJECT_HANDLE> found(64);
  CK_ULONG count = 0;
  EXPECT_EQ(f->C_FindObjectsInit(session, query.data(), static_cast<CK_ULONG>(query.size())), CKR_OK);
  EXPECT_EQ(f->C_FindObjects(session, found.data(), static_cast<CK_ULONG>(found.size()), &count),
            CKR_OK);
  EXPECT_EQ(f->C_FindObjectsFinal(session), CKR_OK);
  found.resize(count);
  return found;
}

Bytes FakeBackendTest::AttributeOf(uint32_t index, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
  CK_FUNCTION_LIST* f = fake.functions;
  CK_SESSION_HANDLE session = TestSession(index);
  CK_ATTRIBUTE a{type, nullptr, 0};
  if (f->C_GetAttributeValue(session, object, &a, 1) != CKR_OK) return Bytes{0xDE, 0xAD};
  Bytes value(a.ulValueLen);
  a.pValue = value.data();
  EXPECT_EQ(f->C_GetAttributeValue(session, object, &a, 1), CKR_OK);
  return value;
}

CK_OBJECT_HANDLE FakeBackendTest::CreateOnToken(uint32_t index, std::vector<CK_ATTRIBUTE> attributes) {
  CK_OBJECT_HANDLE object = 0;
  EXPECT_EQ(fake.functions->C_CreateObject(TestSession(index), attributes.data(),
                                           static_cast<CK_ULONG>(attributes.size()), &object),
            CKR_OK);
  return object;
}

CK_ATTRIBUTE Attr(CK_ATTRIBUTE_TYPE type, const void* value, size_t length) {
  return CK_ATTRIBUTE{type, const_cast<void*>(value), static_cast<CK_ULONG>(length)};
}

CK_ATTRIBUTE Text(CK_ATTRIBUTE_TYPE type, const char* text) {
  return Attr(type, text, std::strlen(text));
}

Bytes Ulong32(CK_ULONG value) {
  Bytes bytes(sizeof(value));
  std::memcpy(bytes.data(), &value, sizeof(value));
  return bytes;
}

Bytes TextBytes(const std::string& text) { return Bytes(text.begin(), text.end()); }

}  // namespace nivra::p11test
