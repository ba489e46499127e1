#include "pfx_key_repair.h"

#include <wincrypt.h>

#include <algorithm>
#include <cstring>

#include "crypto/rsa_interface.h"

namespace nivracli {

namespace {

constexpr size_t kHeadSize = sizeof(BLOBHEADER) + sizeof(RSAPUBKEY);

// One key of the crypto library for the computation.
class RsaKey {
 public:
  RsaKey() { nivra::crypto::RsaNewKey(&handle_); }
  ~RsaKey() {
    if (handle_ != 0) nivra::crypto::RsaFreeKey(handle_);
  }
  RsaKey(const RsaKey&) = delete;
  RsaKey& operator=(const RsaKey&) = delete;
  nivra::crypto::RsaHandle get() const { return handle_; }

 private:
  nivra::crypto::RsaHandle handle_ = 0;
};

// Loads a little-endian component of the blob.
bool Load(const RsaKey& key, uint32_t component, const BYTE* littleEndian, size_t size) {
  std::vector<BYTE> value(littleEndian, littleEndian + size);
  std::reverse(value.begin(), value.end());
  const bool ok = nivra::crypto::RsaHandleSetKey(key.get(), component, value.data(), value.size()) ==
                  nivra::crypto::kOk;
  SecureZeroMemory(value.data(), value.size());
  return ok;
}

// Writes a component into the blob, little-endian, right-aligned in `size` bytes.
bool Store(const RsaKey& key, uint32_t component, BYTE* littleEndian, size_t size) {
  size_t length = 0;
  if (nivra::crypto::RsaHandleExportKey(key.get(), component, nullptr, &length) != nivra::crypto::kOk) {
    return false;
  }
  std::vector<BYTE> value(length);
  if (nivra::crypto::RsaHandleExportKey(key.get(), component, value.data(), &length) != nivra::crypto::kOk) {
    return false;
  }
  // The export is (bits + 7) / 8 bytes; a half-length component has leading zeros there.
  const size_t skip = std::find_if(value.begin(), value.end(), [](BYTE b) { return b != 0; }) - value.begin();
  const bool fits = length - skip <= size;
  if (fits) {
    std::memset(littleEndian, 0, size);
    std::reverse_copy(value.begin() + skip, value.end(), littleEndian);
  }
  SecureZeroMemory(value.data(), value.size());
  return fits;
}

}  // namespace

bool RepairPfxPrivateKeyBlob(std::vector<BYTE>* blob, PCCERT_CONTEXT certificate) {
  if (blob->size() < kHeadSize) return false;
  auto* rsa = reinterpret_cast<RSAPUBKEY*>(blob->data() + sizeof(BLOBHEADER));
  const size_t full = (rsa->bitlen + 7) / 8, half = (rsa->bitlen + 15) / 16;
  if (blob->size() < kHeadSize + 2 * full + 5 * half) return false;
  // The certificate's public key as a PUBLICKEYBLOB: exponent and little-endian modulus.
  BYTE* publicBlob = nullptr;
  DWORD publicLength = 0;
  const CRYPT_BIT_BLOB& key = certificate->pCertInfo->SubjectPublicKeyInfo.PublicKey;
  if (!CryptDecodeObjectEx(X509_ASN_ENCODING, RSA_CSP_PUBLICKEYBLOB, key.pbData, key.cbData,
                           CRYPT_DECODE_ALLOC_FLAG, nullptr, &publicBlob, &publicLength)) {
    return false;
  }
  const auto* publicKey = reinterpret_cast<const RSAPUBKEY*>(publicBlob + sizeof(BLOBHEADER));
  const DWORD exponent = publicKey->pubexp;
  const bool sameModulus = publicKey->bitlen == rsa->bitlen && publicLength >= kHeadSize + full &&
                           std::memcmp(publicBlob + kHeadSize, blob->data() + kHeadSize, full) == 0;
  LocalFree(publicBlob);
  if (!sameModulus) return false;

  BYTE* at = blob->data() + kHeadSize;
  BYTE* const p = at + full;
  BYTE* const q = p + half;
  const BYTE e[] = {static_cast<BYTE>(exponent), static_cast<BYTE>(exponent >> 8),
                    static_cast<BYTE>(exponent >> 16), static_cast<BYTE>(exponent >> 24)};
  RsaKey rebuilt;
  uint32_t bits = 0;
  if (!Load(rebuilt, nivra::crypto::kRsaComponentP, p, half) ||
      !Load(rebuilt, nivra::crypto::kRsaComponentQ, q, half) ||
      !Load(rebuilt, nivra::crypto::kRsaComponentE, e, sizeof(e)) ||
      nivra::crypto::RsaHandleCompleteKey(rebuilt.get(), &bits) != nivra::crypto::kOk || bits != rsa->bitlen) {
    return false;
  }
  // The primes must give the certificate's modulus.
  std::vector<BYTE> modulus(full);
  if (!Store(rebuilt, nivra::crypto::kRsaComponentN, modulus.data(), full) ||
      std::memcmp(modulus.data(), at, full) != 0) {
    return false;
  }
  rsa->pubexp = exponent;
  struct Field {
    uint32_t component;
    size_t size;
  };
  at = p;
  for (const Field& f : {Field{nivra::crypto::kRsaComponentP, half}, Field{nivra::crypto::kRsaComponentQ, half},
                         Field{nivra::crypto::kRsaComponentDP, half}, Field{nivra::crypto::kRsaComponentDQ, half},
                         Field{nivra::crypto::kRsaComponentQInv, half}, Field{nivra::crypto::kRsaComponentD, full}}) {
    if (!Store(rebuilt, f.component, at, f.size)) return false;
    at += f.size;
  }
  return true;
}

}  // namespace nivracli
