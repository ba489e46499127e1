// Base of the tests that run the provider against a SoftHSM2 token under Wine: the token is
// served by the native helper that the CTest fixture "p11helper" starts, reached through
// nivrap11fwd.dll, which this process's own machine hive names as "LibPkcs11". The provider is
// reached through its exports (nivracsp.dll loaded with LoadLibrary) and through CryptoAPI (it is
// registered as "Nivra pkcs11 CSP" in the same hive). The token's objects are looked at from the
// native side by pkcs11_token_probe, and its public keys are handed to OpenSSL there.
//
// All cases share the one token and helper, and run one at a time; each uses containers named
// after itself. Every case needs a process of its own (the provider keeps its module state for
// the process): CTest runs them that way.
#pragma once
#include <gtest/gtest.h>
#include <windows.h>
#include <wincrypt.h>

#include <map>
#include <string>
#include <vector>

#include "machine_hive.h"
#include "pkcs11/cryptoki.h"

namespace nivra::p11test {

using Bytes = std::vector<uint8_t>;

// The provider's exported entries that these tests call directly.
struct ProviderEntries {
  BOOL(WINAPI* AcquireContext)(HCRYPTPROV*, LPSTR, DWORD, void*) = nullptr;
  BOOL(WINAPI* ReleaseContext)(HCRYPTPROV, DWORD) = nullptr;
  BOOL(WINAPI* GetProvParam)(HCRYPTPROV, DWORD, BYTE*, DWORD*, DWORD) = nullptr;
  BOOL(WINAPI* SetProvParam)(HCRYPTPROV, DWORD, BYTE*, DWORD) = nullptr;
  bool Load(HMODULE module);
};

// One object as the probe printed it: attribute name to value (hex bytes or decimal number).
using NativeObject = std::map<std::string, std::string>;

// Name of the provider as the tests register it.
inline constexpr wchar_t kProviderName[] = L"Nivra pkcs11 CSP";
inline constexpr char kUserPin[] = "1234";

class TokenTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  // The provider DLL the case loads and registers (a test build may serve other back ends).
  virtual std::wstring ProviderDll() const { return L"nivracsp.dll"; }

  // Runs a helper control command; a refused one fails the test. Returns the answer.
  std::string Control(const std::string& command);
  // Starts the provider's back end with a verify context on any slot, then finds the fixture
  // token's slot (its id and its name as the provider records it).
  void StartProvider();
  // The exports' acquire; last error (0 on success). Contexts are released at the end.
  DWORD Acquire(const std::string& container, DWORD flags, HCRYPTPROV* prov = nullptr);
  // CryptoAPI's acquire of this provider; last error. Contexts are released at the end.
  DWORD CryptAcquire(const std::string& container, DWORD flags, HCRYPTPROV* prov = nullptr);
  // Starts the provider, logs in, and creates the container `name` through CryptoAPI (deleting
  // what an earlier run left). Returns its context (0, with a test failure, if that fails).
  HCRYPTPROV NewCryptContainer(const std::string& name);
  // Deletes the container if an earlier run of the same case left it on the shared token.
  void FreshContainer(const std::string& name);
  // "\\.\<token slot>\<container>".
  std::string OnToken(const std::string& container) const;
  // Logs the user in on the token slot's shared session through CryptoAPI (verify context and
  // the PIN parameter), so that creating containers and keys asks for no PIN.
  void LogIn();
  // Logs the user out of the token (the helper is one application for SoftHSM2, so a logout on a
  // session of the test's own ends every session's login).
  void LogOut();
  // Signs the SHA-1 hash of `message` with the pair `keySpec` through CryptoAPI: the last error
  // (0 on success), and the signature, most significant byte first, in *signature.
  DWORD SignSha1(HCRYPTPROV prov, DWORD keySpec, const Bytes& message, Bytes* signature = nullptr);
  // The forwarding module's function list (the provider's own instance, already initialised).
  CK_FUNCTION_LIST* Module();

  // The slot holding the token labelled `label` (its id in *id) by its name as the provider
  // records it; "" when no slot holds it.
  std::string SlotOfToken(const std::string& label, CK_SLOT_ID* id = nullptr);
  // The blank-trimmed description of the slot `id`, as the module reports it.
  std::string SlotDescription(CK_SLOT_ID id);

  // The token's objects, natively (logged in as the user), whose attribute `name` has `value`.
  std::vector<NativeObject> NativeObjectsWith(const std::string& name, const std::string& value);
  // OpenSSL's verdict on a PKCS#1 v1.5 SHA-1 signature (big-endian values).
  bool NativeVerifiesSha1(const Bytes& modulus, const Bytes& exponent, const Bytes& message,
                          const Bytes& signature);
  // The message encrypted natively by OpenSSL ("pkcs1" or "oaep"), big-endian.
  Bytes NativeEncrypt(const std::string& padding, const Bytes& modulus, const Bytes& exponent,
                      const Bytes& message);

  // A container name unique to this case.
  std::string CaseName(const std::string& suffix = "") const;

  PrivateMachineHive hive;
  ProviderEntries entries;
  HMODULE provider = nullptr;
  CK_SLOT_ID slotId = 0;
  std::string slotName;
  std::vector<HCRYPTPROV> exportContexts;
  std::vector<HCRYPTPROV> cryptContexts;

 private:
  // Runs tests/pkcs11/token_openssl.sh with `arguments` and returns its output lines.
  std::vector<std::string> RunOpenSsl(const std::string& arguments);
  // Runs a native shell command line and returns its output lines (both streams).
  std::vector<std::string> RunNative(const std::string& commandLine);
  int probeRuns_ = 0;
};

std::string Hex(const Bytes& bytes);
Bytes FromHex(const std::string& text);
Bytes TextBytes(const std::string& text);

}  // namespace nivra::p11test
