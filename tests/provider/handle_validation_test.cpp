// Every entry that takes a context validates its handles before it touches anything, in a fixed
// order, and a bad handle of any kind is an error code, never a crash.
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "provider_fixture.h"

namespace {

constexpr HCRYPTPROV kContextBias = 0x0110F7F0;

// Values that name no live record: zero-ish, the bias itself, near-miss and wild addresses.
const HCRYPTPROV kGarbageHandles[] = {kContextBias, kContextBias + 8, 1, 0x12345678,
                                      0xDEADBEEF00ull, ~HCRYPTPROV{0}, 0x7FFFFFFF0000ull};

struct Entry {
  const char* name;
  std::function<BOOL(ProviderDll&, HCRYPTPROV)> call;
};

// Each entry called with arguments that would be acceptable with a valid context.
// The arguments they share; the test sets entryLength to the buffer's size before each call.
BYTE entryBuffer[512];
DWORD entryLength;
HCRYPTKEY entryKey;
HCRYPTHASH entryHash;

std::vector<Entry> ContextEntries() {
  return {
      {"ReleaseContext", [](ProviderDll& d, HCRYPTPROV p) { return d.ReleaseContext(p, 0); }},
      {"GenKey", [](ProviderDll& d, HCRYPTPROV p) { return d.GenKey(p, CALG_RC4, 0, &entryKey); }},
      {"DeriveKey", [](ProviderDll& d, HCRYPTPROV p) { return d.DeriveKey(p, CALG_RC4, 1, 0, &entryKey); }},
      {"DestroyKey", [](ProviderDll& d, HCRYPTPROV p) { return d.DestroyKey(p, 1); }},
      {"SetKeyParam", [](ProviderDll& d, HCRYPTPROV p) { return d.SetKeyParam(p, 1, KP_IV, entryBuffer, 0); }},
      {"GetKeyParam", [](ProviderDll& d, HCRYPTPROV p) { return d.GetKeyParam(p, 1, KP_ALGID, entryBuffer, &entryLength, 0); }},
      {"SetProvParam", [](ProviderDll& d, HCRYPTPROV p) { return d.SetProvParam(p, PP_USE_HARDWARE_RNG, entryBuffer, 0); }},
      {"GetProvParam", [](ProviderDll& d, HCRYPTPROV p) { return d.GetProvParam(p, PP_VERSION, entryBuffer, &entryLength, 0); }},
      {"SetHashParam", [](ProviderDll& d, HCRYPTPROV p) { return d.SetHashParam(p, 1, HP_HASHVAL, entryBuffer, 0); }},
      {"GetHashParam", [](ProviderDll& d, HCRYPTPROV p) { return d.GetHashParam(p, 1, HP_HASHVAL, entryBuffer, &entryLength, 0); }},
      {"ExportKey", [](ProviderDll& d, HCRYPTPROV p) { return d.ExportKey(p, 1, 0, PUBLICKEYBLOB, 0, entryBuffer, &entryLength); }},
      {"ImportKey", [](ProviderDll& d, HCRYPTPROV p) { return d.ImportKey(p, entryBuffer, 8, 0, 0, &entryKey); }},
      {"Encrypt", [](ProviderDll& d, HCRYPTPROV p) { return d.Encrypt(p, 1, 0, TRUE, 0, entryBuffer, &entryLength, sizeof(entryBuffer)); }},
      {"Decrypt", [](ProviderDll& d, HCRYPTPROV p) { return d.Decrypt(p, 1, 0, TRUE, 0, entryBuffer, &entryLength); }},
      {"CreateHash", [](ProviderDll& d, HCRYPTPROV p) { return d.CreateHash(p, CALG_SHA1, 0, 0, &entryHash); }},
      {"HashData", [](ProviderDll& d, HCRYPTPROV p) { return d.HashData(p, 1, entryBuffer, 4, 0); }},
      {"HashSessionKey", [](ProviderDll& d, HCRYPTPROV p) { return d.HashSessionKey(p, 1, 1, 0); }},
      {"SignHash", [](ProviderDll& d, HCRYPTPROV p) { return d.SignHash(p, 1, AT_SIGNATURE, nullptr, 0, entryBuffer, &entryLength); }},
      {"DestroyHash", [](ProviderDll& d, HCRYPTPROV p) { return d.DestroyHash(p, 1); }},
      {"VerifySignature", [](ProviderDll& d, HCRYPTPROV p) { return d.VerifySignature(p, 1, entryBuffer, 128, 1, nullptr, 0); }},
      {"GenRandom", [](ProviderDll& d, HCRYPTPROV p) { return d.GenRandom(p, 16, entryBuffer); }},
      {"GetUserKey", [](ProviderDll& d, HCRYPTPROV p) { return d.GetUserKey(p, AT_SIGNATURE, &entryKey); }},
  };
}

class HandleValidation : public FakeCardProvider {};

// Zero is an invalid parameter; garbage and a released context are invalid handles.
TEST_F(HandleValidation, BadContextHandlesForEveryEntry) {
  HCRYPTPROV released = Open();
  EXPECT_SUCCEEDS(dll.ReleaseContext(released, 0));
  std::vector<std::pair<HCRYPTPROV, DWORD>> cases = {{0, NTE_INVALID_PARAMETER},
                                                     {released, NTE_INVALID_HANDLE}};
  for (HCRYPTPROV garbage : kGarbageHandles) cases.emplace_back(garbage, NTE_INVALID_HANDLE);
  for (const Entry& e : ContextEntries()) {
    for (const auto& [prov, error] : cases) {
      SCOPED_TRACE(std::string(e.name) + " with " + std::to_string(prov));
      entryLength = sizeof(entryBuffer);
      EXPECT_FAILS_WITH(e.call(dll, prov), error);
    }
  }
}

// Out pointers are checked before the context, and zeroed before it is.
TEST_F(HandleValidation, OutPointersAreCheckedFirstAndZeroed) {
  EXPECT_FAILS_WITH(dll.GenKey(0, CALG_RC4, 0, nullptr), ERROR_INVALID_PARAMETER);
  EXPECT_FAILS_WITH(dll.DeriveKey(0x12345678, CALG_RC4, 1, 0, nullptr), ERROR_INVALID_PARAMETER);
  EXPECT_FAILS_WITH(dll.CreateHash(0, CALG_SHA1, 0, 0, nullptr), ERROR_INVALID_PARAMETER);
  EXPECT_FAILS_WITH(dll.GetUserKey(kContextBias, AT_SIGNATURE, nullptr), ERROR_INVALID_PARAMETER);
  EXPECT_FAILS_WITH(dll.AcquireContext(nullptr, nullptr, 0, nullptr), ERROR_INVALID_PARAMETER);
  HCRYPTKEY key = 0xAAAA, otherKey = 0xAAAA;
  HCRYPTHASH hash = 0xBBBB;
  HCRYPTPROV acquired = 0xCCCC;
  EXPECT_FAILS_WITH(dll.GenKey(0x12345678, CALG_RC4, 0, &key), NTE_INVALID_HANDLE);
  EXPECT_FAILS_WITH(dll.GetUserKey(0, AT_SIGNATURE, &otherKey), NTE_INVALID_PARAMETER);
  EXPECT_FAILS_WITH(dll.CreateHash(kContextBias, CALG_SHA1, 0, 0, &hash), NTE_INVALID_HANDLE);
  EXPECT_FAILS_WITH(dll.AcquireContext(&acquired, nullptr, 0x1, nullptr), NTE_BAD_FLAGS);
  for (ULONG_PTR out : {key, otherKey, hash, acquired}) EXPECT_EQ(out, 0u);
}

TEST_F(HandleValidation, KeyAndHashHandlesAreCheckedAgainstTheNamedContext) {
  auto biasCounter = reinterpret_cast<FakeCardObjectBiasCounterFn>(
      reinterpret_cast<void*>(GetProcAddress(dll.module, "FakeCardObjectBiasCounter")));
  auto setBiasCounter = reinterpret_cast<FakeCardSetObjectBiasCounterFn>(
      reinterpret_cast<void*>(GetProcAddress(dll.module, "FakeCardSetObjectBiasCounter")));
  ASSERT_TRUE(biasCounter != nullptr && setBiasCounter != nullptr);
  const uint32_t bias = biasCounter();
  HCRYPTPROV mine = Open();
  HCRYPTPROV other = Open();  // draws the next bias
  // Draws the first one's bias again, as every context does once the counter has wrapped.
  setBiasCounter(bias);
  HCRYPTPROV sharer = Open();
  HCRYPTKEY key = 0;
  HCRYPTHASH hash = 0;
  ASSERT_TRUE(dll.GenKey(mine, CALG_RC4, 0, &key));
  ASSERT_TRUE(dll.CreateHash(mine, CALG_SHA1, 0, 0, &hash));
  // Destroyed after the live ones were made, so they cannot share an address with them.
  HCRYPTKEY deadKey = 0;
  HCRYPTHASH deadHash = 0;
  ASSERT_TRUE(dll.GenKey(mine, CALG_RC4, 0, &deadKey));
  ASSERT_TRUE(dll.CreateHash(mine, CALG_SHA1, 0, 0, &deadHash));
  EXPECT_SUCCEEDS(dll.DestroyKey(mine, deadKey));
  EXPECT_SUCCEEDS(dll.DestroyHash(mine, deadHash));
  BYTE data[64] = {};
  DWORD length = sizeof(data);

  // Zero: invalid parameter.
  EXPECT_FAILS_WITH(dll.DestroyKey(mine, 0), NTE_INVALID_PARAMETER);
  EXPECT_FAILS_WITH(dll.HashData(mine, 0, data, 4, 0), NTE_INVALID_PARAMETER);
  HCRYPTKEY scratch = 0;
  EXPECT_FAILS_WITH(dll.DeriveKey(mine, CALG_RC4, 0, 0, &scratch), NTE_INVALID_PARAMETER);
  // Another context's objects are unknown here, whether its bias differs or is the same.
  for (HCRYPTPROV stranger : {other, sharer}) {
    EXPECT_FAILS_WITH(dll.GetKeyParam(stranger, key, KP_ALGID, data, &length, 0), NTE_INVALID_HANDLE);
    EXPECT_FAILS_WITH(dll.DestroyHash(stranger, hash), NTE_INVALID_HANDLE);
  }
  EXPECT_SUCCEEDS(dll.HashData(mine, hash, data, 4, 0));
  // Destroyed objects, garbage and near misses.
  for (HCRYPTKEY garbage : {deadKey, HCRYPTKEY{deadHash}, key + 1, key - 16, HCRYPTKEY{0x12345678}, ~HCRYPTKEY{0}}) {
    EXPECT_FAILS_WITH(dll.HashSessionKey(mine, hash, garbage, 0), NTE_INVALID_HANDLE);
    EXPECT_FAILS_WITH(dll.DestroyHash(mine, garbage), NTE_INVALID_HANDLE);
  }
  // Optional handles: a non-zero bad one is still an error.
  length = 8;
  EXPECT_FAILS_WITH(dll.Encrypt(mine, key, 0x12345678, TRUE, 0, data, &length, sizeof(data)),
                    NTE_INVALID_HANDLE);
  EXPECT_FAILS_WITH(dll.ImportKey(mine, data, 8, 0x12345678, 0, &scratch), NTE_INVALID_HANDLE);
  // Hash handle checked before the key handle.
  EXPECT_FAILS_WITH(dll.VerifySignature(mine, 0x1234, data, 8, 0, nullptr, 0), NTE_INVALID_HANDLE);
  EXPECT_FAILS_WITH(dll.VerifySignature(mine, hash, data, 8, 0, nullptr, 0), NTE_INVALID_PARAMETER);

  // Each release frees what its own context made, once.
  EXPECT_SUCCEEDS(dll.ReleaseContext(sharer, 0));
  EXPECT_SUCCEEDS(dll.ReleaseContext(other, 0));
  EXPECT_SUCCEEDS(dll.ReleaseContext(mine, 0xFFFFFFFF));  // release ignores its flags
}

}  // namespace
