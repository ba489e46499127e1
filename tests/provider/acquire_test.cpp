// Acquiring and releasing contexts: flags, container strings, device choice, and the codes of
// each way it can fail.
#include <cstring>
#include <string>

#include "provider_fixture.h"

namespace {

class AcquireContext : public FakeCardProvider {};

TEST_F(AcquireContext, FlagRules) {
  EXPECT_EQ(Acquire(nullptr, CRYPT_MACHINE_KEYSET), 0u);
  EXPECT_EQ(Acquire(nullptr, CRYPT_VERIFYCONTEXT), 0u);
  EXPECT_EQ(Acquire(nullptr, CRYPT_VERIFYCONTEXT | CRYPT_SILENT | CRYPT_MACHINE_KEYSET), 0u);
  for (DWORD bad : {0x1u, 0x2u, 0x4u, 0x80u, 0x100u, 0x0FFFFF87u, 0x10000000u, 0x70000000u,
                    0xE0000000u, 0x80000000u}) {
    SCOPED_TRACE(bad);
    EXPECT_EQ(Acquire(nullptr, bad), static_cast<DWORD>(NTE_BAD_FLAGS));
  }
  EXPECT_EQ(Acquire("c1", CRYPT_NEWKEYSET | CRYPT_DELETEKEYSET), static_cast<DWORD>(NTE_BAD_FLAGS));
  // A silent or verify-only context can neither create nor delete a container.
  EXPECT_EQ(Acquire("c1", CRYPT_SILENT | CRYPT_NEWKEYSET), static_cast<DWORD>(NTE_BAD_FLAGS));
  EXPECT_EQ(Acquire("c1", CRYPT_SILENT | CRYPT_DELETEKEYSET), static_cast<DWORD>(NTE_BAD_FLAGS));
  EXPECT_EQ(Acquire(nullptr, CRYPT_VERIFYCONTEXT | CRYPT_NEWKEYSET), static_cast<DWORD>(NTE_BAD_FLAGS));
  // Verify-only contexts name no container.
  EXPECT_EQ(Acquire("c1", CRYPT_VERIFYCONTEXT), static_cast<DWORD>(NTE_BAD_FLAGS));
  EXPECT_EQ(Acquire("\\\\?\\svc0\\c1", CRYPT_VERIFYCONTEXT), static_cast<DWORD>(NTE_BAD_FLAGS));
  EXPECT_EQ(Acquire("\\\\?\\svc0", CRYPT_VERIFYCONTEXT), 0u);
}

TEST_F(AcquireContext, ReaderPrefixes) {
  // No PKCS#11 module is configured in this prefix: the token-slot prefix is refused before its
  // device name is even looked at.
  EXPECT_EQ(Acquire("\\\\.\\", 0), static_cast<DWORD>(NTE_BAD_KEYSET));
  EXPECT_EQ(Acquire("\\\\.\\slot\\c1", 0), static_cast<DWORD>(NTE_BAD_KEYSET));
  EXPECT_EQ(Acquire("\\\\?\\", 0), static_cast<DWORD>(NTE_BAD_KEYSET_PARAM));
  EXPECT_EQ(Acquire("\\\\?\\\\c1", 0), static_cast<DWORD>(NTE_BAD_KEYSET_PARAM));
  EXPECT_EQ(Acquire("\\\\?\\nosuchcard\\c1", 0), static_cast<DWORD>(NTE_BAD_KEYSET));
  EXPECT_EQ(Acquire("\\\\?\\svc0\\c1", 0), 0u);
  EXPECT_EQ(Acquire("\\\\?\\svc0\\", 0), 0u);
  EXPECT_EQ(Acquire("\\\\?\\svc0", 0), 0u);
  // The Bluetooth prefix is "\\B\" with a capital B only; anything else is a plain name.
  EXPECT_EQ(Acquire("\\\\B\\svc0\\c1", 0), static_cast<DWORD>(NTE_BAD_KEYSET));
  dll.FakeReset(1, 1, "bt0");
  EXPECT_EQ(Acquire("\\\\B\\bt0\\c1", 0), 0u);
}

// The name the context answers and the flags the card's open gets. Any other third character than
// "?" or "B" is no prefix: the whole string is the name (one card present, so no choice is asked).
TEST_F(AcquireContext, ContainerNameAndFlagsReachTheCard) {
  const struct { const char* container; DWORD flags; const char* name; } cases[] = {
      {"\\\\?\\svc0\\my container", CRYPT_MACHINE_KEYSET, "my container"},
      {"\\\\b\\bt0\\c1", 0, "\\\\b\\bt0\\c1"}};
  for (const auto& c : cases) {
    dll.FakeReset(c.flags != 0 ? 1 : 0, c.flags != 0 ? 0 : 1, "");
    HCRYPTPROV prov = 0;
    ASSERT_EQ(Acquire(c.container, c.flags, &prov), 0u) << c.container;
    char name[300] = {};
    DWORD length = sizeof(name);
    EXPECT_SUCCEEDS(dll.GetProvParam(prov, PP_CONTAINER, reinterpret_cast<BYTE*>(name), &length, 0));
    EXPECT_STREQ(name, c.name);
    EXPECT_EQ(length, std::strlen(c.name) + 1);
    EXPECT_EQ(dll.Record().openFlags, c.flags);
    dll.ReleaseContext(prov, 0);
  }
  // A deleting acquire returns no context and closes the card at once, as does a failed open
  // (with the card's code).
  for (const HRESULT openResult : {S_OK, SCARD_W_WRONG_CHV}) {
    dll.FakeReset(1, 0, "");
    dll.FakeSetOpenResult(static_cast<DWORD>(openResult));
    HCRYPTPROV prov = 0xAB;
    const DWORD flags = openResult == S_OK ? CRYPT_DELETEKEYSET : 0;
    EXPECT_EQ(Acquire("\\\\?\\svc0\\c1", flags, &prov), static_cast<DWORD>(openResult));
    EXPECT_EQ(prov, 0u);
    EXPECT_EQ(dll.Record().openFlags, flags);
    EXPECT_EQ(dll.Record().closeCount, 1u);
  }
}

TEST_F(AcquireContext, DeviceChoiceWithoutAName) {
  dll.FakeReset(0, 0, "");
  EXPECT_EQ(Acquire(nullptr, 0), static_cast<DWORD>(NTE_NOT_FOUND));
  EXPECT_EQ(Acquire(nullptr, CRYPT_VERIFYCONTEXT), static_cast<DWORD>(NTE_NOT_FOUND));
  // One device anywhere: it is taken.
  dll.FakeReset(0, 1, "");
  EXPECT_EQ(Acquire("c1", 0), 0u);
  // Several and silent: the card that holds the container, wherever it is (that Bluetooth devices
  // are searched first, and that a verify-only context takes the first service card, is proved
  // against the real card service).
  dll.FakeReset(2, 3, "svc1");
  EXPECT_EQ(Acquire("c1", CRYPT_SILENT), 0u);
  dll.FakeReset(2, 3, "nowhere");
  EXPECT_NE(Acquire("c1", CRYPT_SILENT), 0u);
}

// The name and type in a version 3 loader table; version 1 tables carry neither.
TEST_F(AcquireContext, ProviderNameAndTypeFromTheLoader) {
  char name[] = "Some Other Name";
  std::string container = "\\\\?\\svc0\\c1";
  const struct { DWORD version; const char* name; DWORD type; } cases[] = {
      {3, "Some Other Name", 24}, {1, "Nivra pkcs11 CSP", PROV_RSA_FULL}};
  for (const auto& c : cases) {
    VTableProv vtable{c.version, nullptr, nullptr, 24, nullptr, 0, name};
    HCRYPTPROV prov = 0;
    ASSERT_TRUE(dll.AcquireContext(&prov, container.data(), 0, &vtable));
    char got[300] = {};
    DWORD type = 0, length = sizeof(got);
    EXPECT_SUCCEEDS(dll.GetProvParam(prov, PP_NAME, reinterpret_cast<BYTE*>(got), &length, 0));
    EXPECT_STREQ(got, c.name);
    length = sizeof(type);
    EXPECT_SUCCEEDS(dll.GetProvParam(prov, PP_PROVTYPE, reinterpret_cast<BYTE*>(&type), &length, 0));
    EXPECT_EQ(type, c.type);
    dll.ReleaseContext(prov, 0);
  }
}

// Container names of at most 255 characters, after a reader prefix too, through both entries;
// wide names convert whatever their characters, and 259 characters convert but exceed a name,
// while 260 do not even convert.
TEST_F(AcquireContext, ContainerNameLengths) {
  const DWORD tooLong = static_cast<DWORD>(NTE_BAD_KEYSET_PARAM);
  const std::wstring svc = L"\\\\?\\svc0\\";
  enum : int { kNarrow = 1, kWide = 2 };  // the entries a row goes through
  const struct {
    std::wstring name;
    DWORD error;
    int entries;
  } cases[] = {{std::wstring(255, L'n'), 0, kNarrow | kWide}, {std::wstring(256, L'n'), tooLong, kNarrow | kWide},
               {svc + std::wstring(255, L'n'), 0, kNarrow},   {svc + std::wstring(256, L'n'), tooLong, kNarrow},
               {svc + L"\u4E2D\u6587\u2603", 0, kWide},       {std::wstring(259, L'w'), tooLong, kWide},
               {std::wstring(260, L'w'), tooLong, kWide}};
  for (const auto& c : cases) {
    if (c.entries & kNarrow) {
      EXPECT_EQ(Acquire(std::string(c.name.begin(), c.name.end()).c_str(), 0), c.error) << c.name.size();
    }
    if (!(c.entries & kWide)) continue;
    HCRYPTPROV prov = 0;
    std::wstring name = c.name;
    SetLastError(0xFEED);
    const BOOL ok = dll.AcquireContextW(&prov, name.data(), 0, nullptr);
    EXPECT_EQ(GetLastError(), c.error) << c.name.size();
    EXPECT_EQ(ok != FALSE, c.error == 0) << c.name.size();
    if (ok) dll.ReleaseContext(prov, 0);
  }
}

}  // namespace
