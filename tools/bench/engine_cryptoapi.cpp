// The Windows software provider ("Microsoft Strong Cryptographic Provider", PROV_RSA_FULL) behind
// the benchmark's engine interface, driven through public CryptoAPI as any application would.
// Under Wine this is Wine's rsaenh.
#include <windows.h>
#include <wincrypt.h>

#include <algorithm>
#include <cstring>

#include "bench_engine.h"

namespace nivra::bench {
namespace {

// Layout of a PLAINTEXTKEYBLOB for a two-key Triple DES key.
struct TdesKeyBlob {
  BLOBHEADER header;
  DWORD keyLength;
  BYTE key[16];
};

std::vector<uint8_t> BigEndianFrom(const BYTE* littleEndian, size_t length) {
  std::vector<uint8_t> out(littleEndian, littleEndian + length);
  std::reverse(out.begin(), out.end());
  return out;
}

std::string WineVersion() {
  HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  if (ntdll == nullptr) return {};
  using VersionFn = const char* (*)();
  auto fn = reinterpret_cast<VersionFn>(
      reinterpret_cast<void*>(GetProcAddress(ntdll, "wine_get_version")));
  return fn != nullptr ? std::string(" under Wine ") + fn() : std::string();
}

class CryptoApiEngine : public BenchEngine {
 public:
  CryptoApiEngine() {
    if (!CryptAcquireContextW(&prov_, nullptr, MS_STRONG_PROV_W, PROV_RSA_FULL,
                              CRYPT_VERIFYCONTEXT))
      prov_ = 0;
  }

  ~CryptoApiEngine() override {
    if (tdes_ != 0) CryptDestroyKey(tdes_);
    if (signKey_ != 0) CryptDestroyKey(signKey_);
    if (prov_ != 0) CryptReleaseContext(prov_, 0);
  }

  std::string Name() const override {
    char name[128] = {};
    DWORD length = sizeof(name);
    if (prov_ == 0 || !CryptGetProvParam(prov_, PP_NAME, reinterpret_cast<BYTE*>(name), &length, 0))
      return "CryptoAPI software provider (not available)";
    return std::string(name) + WineVersion();
  }

  Outcome Sha1(const uint8_t* data, size_t len, uint8_t out[20]) override {
    HCRYPTHASH hash = 0;
    if (!CryptCreateHash(prov_, CALG_SHA1, 0, 0, &hash)) return Outcome::kFailed;
    DWORD outLen = 20;
    const bool ok = CryptHashData(hash, data, static_cast<DWORD>(len), 0) &&
                    CryptGetHashParam(hash, HP_HASHVAL, out, &outLen, 0) && outLen == 20;
    CryptDestroyHash(hash);
    return ok ? Outcome::kDone : Outcome::kFailed;
  }

  Outcome TdesCbcStart(const uint8_t key[16], const uint8_t iv[8]) override {
    if (tdes_ != 0) CryptDestroyKey(tdes_);
    tdes_ = 0;
    TdesKeyBlob blob = {};
    blob.header.bType = PLAINTEXTKEYBLOB;
    blob.header.bVersion = CUR_BLOB_VERSION;
    blob.header.aiKeyAlg = CALG_3DES_112;
    blob.keyLength = sizeof(blob.key);
    std::memcpy(blob.key, key, sizeof(blob.key));
    DWORD mode = CRYPT_MODE_CBC;
    const bool ok =
        CryptImportKey(prov_, reinterpret_cast<const BYTE*>(&blob), sizeof(blob), 0, 0, &tdes_) &&
        CryptSetKeyParam(tdes_, KP_MODE, reinterpret_cast<const BYTE*>(&mode), 0) &&
        CryptSetKeyParam(tdes_, KP_IV, iv, 0);
    SecureZeroMemory(&blob, sizeof(blob));
    return ok ? Outcome::kDone : Outcome::kFailed;
  }

  Outcome TdesCbcEncrypt(uint8_t* data, size_t len) override {
    DWORD length = static_cast<DWORD>(len);
    return CryptEncrypt(tdes_, 0, FALSE, 0, data, &length, length) && length == len
               ? Outcome::kDone
               : Outcome::kFailed;
  }

  Outcome RsaGenerate() override {
    HCRYPTKEY key = 0;
    if (!CryptGenKey(prov_, CALG_RSA_KEYX, (kRsaBits << 16) | CRYPT_EXPORTABLE, &key))
      return Outcome::kFailed;
    CryptDestroyKey(key);
    return Outcome::kDone;
  }

  // The signature key pair of this (verify-only) context, exported as a PRIVATEKEYBLOB:
  // header, RSAPUBKEY, then n, p, q, dP, dQ, qInv, d little-endian.
  Outcome RsaMakeSharedKey(RsaKeyComponents* out) override {
    if (!CryptGenKey(prov_, AT_SIGNATURE, (kRsaBits << 16) | CRYPT_EXPORTABLE, &signKey_))
      return Outcome::kFailed;
    DWORD length = 0;
    if (!CryptExportKey(signKey_, 0, PRIVATEKEYBLOB, 0, nullptr, &length)) return Outcome::kFailed;
    std::vector<BYTE> blob(length);
    if (!CryptExportKey(signKey_, 0, PRIVATEKEYBLOB, 0, blob.data(), &length))
      return Outcome::kFailed;
    constexpr size_t kHalf = kRsaBytes / 2;
    if (length < sizeof(BLOBHEADER) + sizeof(RSAPUBKEY) + 2 * kRsaBytes + 5 * kHalf)
      return Outcome::kFailed;
    RSAPUBKEY pub;
    std::memcpy(&pub, blob.data() + sizeof(BLOBHEADER), sizeof(pub));
    const BYTE* p = blob.data() + sizeof(BLOBHEADER) + sizeof(RSAPUBKEY);
    out->n = BigEndianFrom(p, kRsaBytes);
    p += kRsaBytes;
    out->p = BigEndianFrom(p, kHalf);
    out->q = BigEndianFrom(p += kHalf, kHalf);
    out->dP = BigEndianFrom(p += kHalf, kHalf);
    out->dQ = BigEndianFrom(p += kHalf, kHalf);
    out->qInv = BigEndianFrom(p += kHalf, kHalf);
    out->d = BigEndianFrom(p += kHalf, kRsaBytes);
    const uint32_t e = pub.pubexp;
    out->e = {static_cast<uint8_t>(e >> 16), static_cast<uint8_t>(e >> 8), static_cast<uint8_t>(e)};
    SecureZeroMemory(blob.data(), blob.size());
    return Outcome::kDone;
  }

  Outcome RsaLoadSharedKey(const RsaKeyComponents&) override { return Outcome::kNotBuilt; }

  // CryptSignHash over a SHA-1 hash object holding `hash`: the provider builds the type 1
  // block with the SHA-1 DigestInfo and runs its private-key operation.
  Outcome RsaSign(const uint8_t*, const uint8_t hash[20], uint8_t signature[kRsaBytes]) override {
    HCRYPTHASH h = HashHolding(hash);
    if (h == 0) return Outcome::kFailed;
    DWORD length = kRsaBytes;
    const bool ok = CryptSignHashW(h, AT_SIGNATURE, nullptr, 0, signature, &length) &&
                    length == kRsaBytes;
    CryptDestroyHash(h);
    if (!ok) return Outcome::kFailed;
    std::reverse(signature, signature + kRsaBytes);  // CryptoAPI answers little-endian
    return Outcome::kDone;
  }

  Outcome RsaVerify(const uint8_t signature[kRsaBytes], const uint8_t*,
                    const uint8_t hash[20]) override {
    HCRYPTHASH h = HashHolding(hash);
    if (h == 0) return Outcome::kFailed;
    BYTE littleEndian[kRsaBytes];
    std::reverse_copy(signature, signature + kRsaBytes, littleEndian);
    const bool ok = CryptVerifySignatureW(h, littleEndian, kRsaBytes, signKey_, nullptr, 0);
    CryptDestroyHash(h);
    return ok ? Outcome::kDone : Outcome::kFailed;
  }

 private:
  HCRYPTHASH HashHolding(const uint8_t hash[20]) {
    HCRYPTHASH h = 0;
    if (!CryptCreateHash(prov_, CALG_SHA1, 0, 0, &h)) return 0;
    if (!CryptSetHashParam(h, HP_HASHVAL, hash, 0)) {
      CryptDestroyHash(h);
      return 0;
    }
    return h;
  }

  HCRYPTPROV prov_ = 0;
  HCRYPTKEY tdes_ = 0;
  HCRYPTKEY signKey_ = 0;
};

}  // namespace

std::unique_ptr<BenchEngine> MakePeerEngine() { return std::make_unique<CryptoApiEngine>(); }

}  // namespace nivra::bench
