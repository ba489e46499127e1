// provider_bench: what the provider itself costs on a token, in one run (Windows, under Wine).
//   provider_bench CARD PIN [SIGNATURES]
// CARD is a token slot's name; the provider must be registered and "LibPkcs11" must name the
// forwarding module, whose helper NIVRA_P11_HELPER names (scripts/bench-provider.sh prepares it).
// Rows:
//   1. CryptSignHash (SHA-1, 2048-bit key) on an opened context, beside the same PKCS#1 v1.5
//      signature made by calling the same PKCS#11 module through the same forwarding path
//      directly (C_SignInit + C_Sign with CKM_RSA_PKCS on one open, logged-in session): time and
//      module calls per signature, counted by the helper.
//   2. CryptAcquireContext + CryptSignHash + CryptReleaseContext through the loader, per second.
//   3. CryptVerifySignature with an imported PUBLICKEYBLOB: this provider beside Wine's provider.
// Each signature signs a different message: the provider keeps the last private-key result and
// would answer a repeated one without the token. Times come from alternating rounds of the two
// sides, fastest round (tools/bench/bench_timing.h), so both see the same load; the module calls
// are counted over a separate run of SIGNATURES signatures per side.
#include <windows.h>
#include <wincrypt.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "bench_timing.h"
#include "pkcs11/cryptoki.h"
#include "tools/p11wire/control_client.h"

namespace {

using Bytes = std::vector<BYTE>;
using nivra::bench::Outcome;
// One call per round (the operations take milliseconds), fastest of up to 41 rounds per side.
constexpr nivra::bench::TimingPlan kTokenPlan = {41, 11, 0, 3.0, nivra::bench::Statistic::kFastest};
// Short rounds for the in-process operations.
constexpr nivra::bench::TimingPlan kLocalPlan = nivra::bench::kQuickOperationPlan;
const char kProvider[] = "Nivra pkcs11 CSP";
const char kContainer[] = "provider-bench";
// The provider's parameter that answers a token-slot context's slot identifier.
constexpr DWORD kSlotIdParam = 0x80000001;
// SHA-1 DigestInfo prefix (PKCS#1 v1.5): what CKM_RSA_PKCS signs in front of the hash.
const BYTE kSha1Prefix[] = {0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2B, 0x0E, 0x03, 0x02, 0x1A, 0x05, 0x00, 0x04, 0x14};

[[noreturn]] void Die(const char* what) {
  std::fprintf(stderr, "provider_bench: %s failed: 0x%08lX\n", what, GetLastError());
  std::exit(1);
}


nivra::p11wire::WireAddress Helper() {
  const char* text = std::getenv("NIVRA_P11_HELPER");
  std::string s = text != nullptr ? text : "127.0.0.1:45470";
  return {s.substr(0, s.find(':')), static_cast<uint16_t>(std::atoi(s.substr(s.find(':') + 1).c_str()))};
}

// Module calls the helper forwarded since the last reset, by function.
std::map<std::string, long> TakeCounts() {
  std::string answer;
  nivra::p11wire::SendControlCommand(Helper(), "counts", &answer);
  std::string ignored;
  nivra::p11wire::SendControlCommand(Helper(), "reset-counts", &ignored);
  std::map<std::string, long> counts;
  std::istringstream lines(answer);
  for (std::string line; std::getline(lines, line);) {
    const size_t eq = line.find('=');
    if (eq != std::string::npos) counts[line.substr(0, eq)] = std::atol(line.substr(eq + 1).c_str());
  }
  return counts;
}

std::string Describe(const std::map<std::string, long>& counts, int per) {
  std::string text;
  long total = 0;
  for (const auto& [name, n] : counts) total += n;
  char head[64];
  std::snprintf(head, sizeof head, "%.2f calls:", static_cast<double>(total) / per);
  text = head;
  for (const auto& [name, n] : counts) {
    char item[96];
    std::snprintf(item, sizeof item, " %s %.2f", name.c_str(), static_cast<double>(n) / per);
    text += item;
  }
  return text;
}

Bytes Sha1(HCRYPTPROV prov, int i) {
  HCRYPTHASH hash = 0;
  if (!CryptCreateHash(prov, CALG_SHA1, 0, 0, &hash)) Die("CryptCreateHash");
  CryptHashData(hash, reinterpret_cast<const BYTE*>(&i), sizeof(i), 0);
  Bytes value(20);
  DWORD length = 20;
  CryptGetHashParam(hash, HP_HASHVAL, value.data(), &length, 0);
  CryptDestroyHash(hash);
  return value;
}

bool SignOnce(HCRYPTPROV prov, int i) {
  HCRYPTHASH hash = 0;
  if (!CryptCreateHash(prov, CALG_SHA1, 0, 0, &hash)) return false;
  CryptHashData(hash, reinterpret_cast<const BYTE*>(&i), sizeof(i), 0);
  BYTE signature[512];
  DWORD length = sizeof(signature);
  const bool ok = CryptSignHashW(hash, AT_SIGNATURE, nullptr, 0, signature, &length);
  CryptDestroyHash(hash);
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: provider_bench CARD PIN [SIGNATURES]\n");
    return 2;
  }
  const std::string card = argv[1], pin = argv[2];
  const int n = argc > 3 ? std::atoi(argv[3]) : 200;
  const std::string cardString = "\\\\.\\" + card, containerString = cardString + "\\" + kContainer;

  // The card logged in, and a fresh container with a 2048-bit signature pair.
  HCRYPTPROV login = 0, prov = 0, gone = 0;
  if (!CryptAcquireContextA(&login, cardString.c_str(), kProvider, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT)) Die("acquire card");
  if (!CryptSetProvParam(login, PP_SIGNATURE_PIN, reinterpret_cast<const BYTE*>(pin.c_str()), 0)) Die("PIN");
  CryptAcquireContextA(&gone, containerString.c_str(), kProvider, PROV_RSA_FULL, CRYPT_DELETEKEYSET);
  if (!CryptAcquireContextA(&prov, containerString.c_str(), kProvider, PROV_RSA_FULL, CRYPT_NEWKEYSET)) Die("create");
  HCRYPTKEY pair = 0;
  if (!CryptGenKey(prov, AT_SIGNATURE, 2048u << 16, &pair)) Die("CryptGenKey");

  // The same module, as the provider loaded it, and the pair's private key found directly.
  auto getList = reinterpret_cast<CK_C_GetFunctionList>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"nivrap11fwd.dll"), "C_GetFunctionList")));
  CK_FUNCTION_LIST* f = nullptr;
  if (getList == nullptr || getList(&f) != CKR_OK) Die("C_GetFunctionList");
  DWORD slotId = 0, slotIdLength = sizeof(slotId);
  if (!CryptGetProvParam(prov, kSlotIdParam, reinterpret_cast<BYTE*>(&slotId), &slotIdLength, 0)) Die("slot id");
  CK_SESSION_HANDLE session = 0;
  if (f->C_OpenSession(slotId, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &session) != CKR_OK) Die("C_OpenSession");
  const std::string id = std::string(kContainer) + "_cspS";
  CK_OBJECT_CLASS keyClass = CKO_PRIVATE_KEY;
  CK_ATTRIBUTE query[] = {{CKA_CLASS, &keyClass, sizeof(keyClass)},
                          {CKA_ID, const_cast<char*>(id.data()), static_cast<CK_ULONG>(id.size())}};
  CK_OBJECT_HANDLE key = 0;
  CK_ULONG found = 0;
  f->C_FindObjectsInit(session, query, 2);
  f->C_FindObjects(session, &key, 1, &found);
  f->C_FindObjectsFinal(session);
  if (found != 1) Die("finding the private key");
  CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};

  int message = 0;
  auto providerSign = [&] { return SignOnce(prov, ++message) ? Outcome::kDone : Outcome::kFailed; };
  auto directSign = [&] {
    Bytes info(kSha1Prefix, kSha1Prefix + sizeof(kSha1Prefix));
    const Bytes hash = Sha1(prov, ++message);
    info.insert(info.end(), hash.begin(), hash.end());
    BYTE signature[512];
    CK_ULONG length = sizeof(signature);
    return f->C_SignInit(session, &mechanism, key) == CKR_OK &&
                   f->C_Sign(session, info.data(), static_cast<CK_ULONG>(info.size()), signature, &length) == CKR_OK
               ? Outcome::kDone
               : Outcome::kFailed;
  };
  auto callsPer = [&](const std::function<Outcome()>& op) {
    TakeCounts();
    for (int i = 0; i < n; ++i) {
      if (op() != Outcome::kDone) Die("signing");
    }
    return Describe(TakeCounts(), n);
  };
  // 1. Signatures: calls per signature, then time.
  const std::string providerCalls = callsPer(providerSign);
  const std::string directCalls = callsPer(directSign);
  const nivra::bench::PairTiming sign = nivra::bench::MeasurePair(providerSign, directSign, kTokenPlan);

  // 2. Acquire, sign and release through the loader (no peer).
  auto cycle = [&] {
    HCRYPTPROV each = 0;
    if (!CryptAcquireContextA(&each, containerString.c_str(), kProvider, PROV_RSA_FULL, CRYPT_SILENT)) {
      return Outcome::kFailed;
    }
    const bool ok = SignOnce(each, ++message);
    CryptReleaseContext(each, 0);
    return ok ? Outcome::kDone : Outcome::kFailed;
  };
  const nivra::bench::PairTiming cycles = nivra::bench::MeasurePair(cycle, [] { return Outcome::kNotBuilt; }, kTokenPlan);
  f->C_CloseSession(session);

  // 3. Verification with an imported public key: this provider beside Wine's provider; each side
  // also runs the loop without the verification (the hash object's own cost).
  BYTE blob[1024];
  DWORD blobLength = sizeof(blob);
  if (!CryptExportKey(pair, 0, PUBLICKEYBLOB, 0, blob, &blobLength)) Die("export");
  HCRYPTPROV verifyOurs = 0, verifySoft = 0;
  if (!CryptAcquireContextA(&verifyOurs, nullptr, kProvider, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT)) Die("verify context");
  if (!CryptAcquireContextW(&verifySoft, nullptr, MS_STRONG_PROV_W, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT)) Die("rsaenh");
  BYTE signature[512];
  DWORD signatureLength = sizeof(signature);
  HCRYPTHASH signed0 = 0;
  CryptCreateHash(prov, CALG_SHA1, 0, 0, &signed0);
  int zero = 0;
  CryptHashData(signed0, reinterpret_cast<const BYTE*>(&zero), sizeof(zero), 0);
  if (!CryptSignHashW(signed0, AT_SIGNATURE, nullptr, 0, signature, &signatureLength)) Die("sign for verify");
  CryptDestroyHash(signed0);
  HCRYPTKEY keys[2] = {0, 0};
  const HCRYPTPROV sides[2] = {verifyOurs, verifySoft};
  for (int side = 0; side < 2; ++side) {
    if (!CryptImportKey(sides[side], blob, blobLength, 0, 0, &keys[side])) Die("import");
  }
  auto verifyOn = [&](int side, bool withVerify) {
    return [&, side, withVerify] {
      HCRYPTHASH hash = 0;
      if (!CryptCreateHash(sides[side], CALG_SHA1, 0, 0, &hash)) return Outcome::kFailed;
      CryptHashData(hash, reinterpret_cast<const BYTE*>(&zero), sizeof(zero), 0);
      const bool ok = !withVerify || CryptVerifySignatureW(hash, signature, signatureLength, keys[side], nullptr, 0);
      CryptDestroyHash(hash);
      return ok ? Outcome::kDone : Outcome::kFailed;
    };
  };
  const nivra::bench::PairTiming verify = nivra::bench::MeasurePair(verifyOn(0, true), verifyOn(1, true), kLocalPlan);
  const nivra::bench::PairTiming hashOnly = nivra::bench::MeasurePair(verifyOn(0, false), verifyOn(1, false), kLocalPlan);
  for (HCRYPTKEY k : keys) CryptDestroyKey(k);

  auto ms = [](const nivra::bench::Timing& t) { return t.outcome == Outcome::kDone ? t.secondsPerCall * 1e3 : -1.0; };
  std::printf("| Row | This provider | Peer | Ratio (peer time / ours) |\n|---|---|---|---|\n");
  std::printf("| RSA-2048 SHA-1 signature on the token | %.3f ms (CryptSignHash) | %.3f ms (C_SignInit + C_Sign, same module and link) | %.2f |\n",
              ms(sign.ours), ms(sign.peer), ms(sign.peer) / ms(sign.ours));
  std::printf("| Module calls per signature (%d signatures) | %s | %s | |\n", n, providerCalls.c_str(), directCalls.c_str());
  std::printf("| Acquire + sign + release through the loader | %.1f per second (%.3f ms each) | | |\n",
              1e3 / ms(cycles.ours), ms(cycles.ours));
  std::printf("| CryptVerifySignature, imported PUBLICKEYBLOB (hash create, data, verify, destroy) | %.1f us | %.1f us (Wine's provider) | %.2f |\n",
              ms(verify.ours) * 1e3, ms(verify.peer) * 1e3, ms(verify.peer) / ms(verify.ours));
  std::printf("| the same without CryptVerifySignature (hash create, data, destroy) | %.1f us | %.1f us | %.2f |\n",
              ms(hashOnly.ours) * 1e3, ms(hashOnly.peer) * 1e3, ms(hashOnly.peer) / ms(hashOnly.ours));

  CryptDestroyKey(pair);
  CryptReleaseContext(verifyOurs, 0);
  CryptReleaseContext(verifySoft, 0);
  CryptReleaseContext(prov, 0);
  CryptAcquireContextA(&gone, containerString.c_str(), kProvider, PROV_RSA_FULL, CRYPT_DELETEKEYSET);
  CryptReleaseContext(login, 0);
  return 0;
}
