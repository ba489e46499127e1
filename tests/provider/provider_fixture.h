// A test fixture holding the fake-card build of the provider, with helpers to open contexts.
#pragma once
#include <gtest/gtest.h>

#include <vector>

#include "provider_dll.h"

using Bytes = std::vector<BYTE>;

// PKCS#1 DigestInfo prefixes of SHA-1 and MD5 (RFC 8017, section 9.2, note 1).
const Bytes kSha1Prefix = {0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2B, 0x0E, 0x03, 0x02, 0x1A, 0x05, 0x00, 0x04, 0x14};
const Bytes kMd5Prefix = {0x30, 0x20, 0x30, 0x0C, 0x06, 0x08, 0x2A, 0x86, 0x48,
                          0x86, 0xF7, 0x0D, 0x02, 0x05, 0x05, 0x00, 0x04, 0x10};

// The value of data hashed by Wine's own software provider.
inline Bytes WineHash(ALG_ID alg, const Bytes& data) {
  HCRYPTPROV wine = OpenWineSoftwareProvider();
  HCRYPTHASH hash = 0;
  Bytes value(64);
  DWORD length = static_cast<DWORD>(value.size());
  EXPECT_TRUE(CryptCreateHash(wine, alg, 0, 0, &hash) && CryptHashData(hash, data.data(), static_cast<DWORD>(data.size()), 0) &&
              CryptGetHashParam(hash, HP_HASHVAL, value.data(), &length, 0));
  value.resize(length);
  CryptDestroyHash(hash);
  CryptReleaseContext(wine, 0);
  return value;
}

// The test-card build with one service card, a context on it, and Wine's software provider for
// cross-checks.
class FakeCardProvider : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(dll.Load(kFakeCardDll, "NivraCP", &error)) << error;
    dll.FakeReset(1, 0, "svc0");
    prov = Open();
    wine = OpenWineSoftwareProvider();
    ASSERT_NE(wine, 0u);
  }
  void TearDown() override {
    if (prov != 0) dll.ReleaseContext(prov, 0);
    if (wine != 0) CryptReleaseContext(wine, 0);
  }

  // Acquires a context on the first service card ("\\?\svc0\<container>"); fails the test if
  // that does not work.
  HCRYPTPROV Open(const char* container = "\\\\?\\svc0\\c1", DWORD flags = 0) {
    HCRYPTPROV prov = 0;
    std::string name = container;
    EXPECT_TRUE(dll.AcquireContext(&prov, name.data(), flags, nullptr))
        << std::hex << GetLastError();
    return prov;
  }

  // Acquire result: the last error (0 on success); *prov receives the handle.
  DWORD Acquire(const char* container, DWORD flags, HCRYPTPROV* prov = nullptr) {
    HCRYPTPROV local = 0xDEAD;
    std::string name = container != nullptr ? container : "";
    SetLastError(0xFEEDu);
    BOOL ok = dll.AcquireContext(&local, container != nullptr ? name.data() : nullptr, flags, nullptr);
    DWORD error = GetLastError();
    if (prov != nullptr) *prov = local;
    if (ok && prov == nullptr && local != 0) dll.ReleaseContext(local, 0);
    EXPECT_EQ(ok != FALSE, error == 0) << "TRUE must come with last error 0, FALSE with a code";
    return error;
  }

  ProviderDll dll;
  HCRYPTPROV prov = 0;
  HCRYPTPROV wine = 0;
};

// Checks a BOOL entry result and the last error it left.
#define EXPECT_FAILS_WITH(call, code)                      \
  do {                                                     \
    SetLastError(0xFEEDu);                                 \
    BOOL ok_ = (call);                                     \
    DWORD err_ = GetLastError();                           \
    EXPECT_FALSE(ok_) << #call;                            \
    EXPECT_EQ(err_, static_cast<DWORD>(code)) << #call;    \
  } while (0)

#define EXPECT_SUCCEEDS(call)                              \
  do {                                                     \
    SetLastError(0xFEEDu);                                 \
    BOOL ok_ = (call);                                     \
    DWORD err_ = GetLastError();                           \
    EXPECT_TRUE(ok_) << #call << " error " << std::hex << err_; \
    EXPECT_EQ(err_, 0u) << #call;                          \
  } while (0)
