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

// Container names of at most 255 characters, after a reader prefix too, through both entries;
// wide names convert whatever their characters.
TEST_F(AcquireContext, ContainerNameLengths) {
  const DWORD tooLong = static_cast<DWORD>(NTE_BAD_KEYSET_PARAM);
  const std::string svc = "\\\\?\\svc0\\";
  for (const auto& [name, error] :
       {std::pair<std::string, DWORD>{std::string(255, 'n'), 0}, {std::string(256, 'n'), tooLong},
        {svc + std::string(255, 'n'), 0}, {svc + std::string(256, 'n'), tooLong}}) {
    EXPECT_EQ(Acquire(name.c_str(), 0), error) << name.size();
  }
  for (const auto& [name, error] : {std::pair<std::wstring, DWORD>{std::wstring(255, L'w'), 0},
                                    {std::wstring(256, L'w'), tooLong},
                                    {L"\\\\?\\svc0\\\u4E2D\u6587\u2603", 0}}) {
    HCRYPTPROV prov = 0;
    std::wstring copy = name;
    SetLastError(0xFEED);
    const BOOL ok = dll.AcquireContextW(&prov, copy.data(), 0, nullptr);
    EXPECT_EQ(GetLastError(), error) << name.size();
    EXPECT_EQ(ok != FALSE, error == 0) << name.size();
    if (ok) dll.ReleaseContext(prov, 0);
  }
}

}  // namespace
