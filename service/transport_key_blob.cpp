// The software provider's road to the transport key: the key as a CryptoAPI private-key blob,
// imported into a temporary key set that lives only for one decryption.
#include <windows.h>
#include <wincrypt.h>
#include <objbase.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "crypto/der.h"
#include "crypto/rsa_key.h"
#include "crypto/wipe.h"
#include "service/transport_key.h"

namespace nivra::service {

namespace {

constexpr uint8_t kTagSequence = 0x30;
constexpr uint8_t kTagInteger = 0x02;
constexpr size_t kDerIntegers = 9;  // version, n, e, d, p, q, dP, dQ, qInv
enum DerIndex { kVersion, kN, kE, kD, kP, kQ, kDP, kDQ, kQInv };
constexpr uint32_t kBlobHeaderSize = sizeof(BLOBHEADER) + sizeof(RSAPUBKEY);
constexpr DWORD kMagicRsa2 = 0x32415352;  // "RSA2"
constexpr uint32_t kMaxCiphertext = 2048;
constexpr size_t kGuidChars = 64;
const wchar_t kSoftwareProvider[] = L"Microsoft Strong Cryptographic Provider";

struct Span {
  const uint8_t* data = nullptr;
  size_t len = 0;
};

// Splits the DER into its nine INTEGER contents (leading zero bytes dropped).
bool SplitDer(const uint8_t* der, size_t derLen, Span (&parts)[kDerIntegers]) {
  uint8_t tag = 0;
  size_t header = 0, content = 0;
  if (!crypto::ReadDerHeader(der, derLen, &tag, &header, &content) || tag != kTagSequence ||
      content > derLen - header) {
    return false;
  }
  const uint8_t* at = der + header;
  const uint8_t* end = at + content;
  for (Span& part : parts) {
    if (!crypto::ReadDerHeader(at, static_cast<size_t>(end - at), &tag, &header, &content) ||
        tag != kTagInteger || content > static_cast<size_t>(end - at) - header) {
      return false;
    }
    part.data = at + header;
    part.len = content;
    while (part.len > 0 && part.data[0] == 0) {
      ++part.data;
      --part.len;
    }
    at += header + content;
  }
  return true;
}

// Writes part byte-reversed into a little-endian field of `width` bytes.
bool PutLittleEndian(const Span& part, size_t width, uint8_t* field) {
  if (part.len > width) return false;
  std::memset(field, 0, width);
  for (size_t i = 0; i < part.len; ++i) field[i] = part.data[part.len - 1 - i];
  return true;
}

// Owns a provider context and deletes its temporary key set when it goes.
class TemporaryKeySet {
 public:
  TemporaryKeySet() {
    GUID guid;
    if (CoCreateGuid(&guid) == S_OK && StringFromGUID2(guid, name_, kGuidChars) > 0) {
      named_ = true;
    }
  }
  ~TemporaryKeySet() {
    if (key_ != 0) CryptDestroyKey(key_);
    if (prov_ != 0) CryptReleaseContext(prov_, 0);
    if (named_) {
      HCRYPTPROV gone = 0;
      CryptAcquireContextW(&gone, name_, kSoftwareProvider, PROV_RSA_FULL, CRYPT_DELETEKEYSET);
    }
  }
  TemporaryKeySet(const TemporaryKeySet&) = delete;
  TemporaryKeySet& operator=(const TemporaryKeySet&) = delete;

  bool Acquire() {
    const wchar_t* name = named_ ? name_ : nullptr;
    if (CryptAcquireContextW(&prov_, name, kSoftwareProvider, PROV_RSA_FULL, 0)) return true;
    prov_ = 0;
    if (CryptAcquireContextW(&prov_, name, kSoftwareProvider, PROV_RSA_FULL, CRYPT_NEWKEYSET)) {
      return true;
    }
    prov_ = 0;
    return false;
  }
  bool Import(const uint8_t* blob, DWORD len) {
    return CryptImportKey(prov_, blob, len, 0, 0, &key_) != FALSE;
  }
  HCRYPTKEY Key() const { return key_; }

 private:
  wchar_t name_[kGuidChars] = {};
  bool named_ = false;
  HCRYPTPROV prov_ = 0;
  HCRYPTKEY key_ = 0;
};

Status LastStatus() { return static_cast<Status>(GetLastError()); }

}  // namespace

Status DerToPrivateKeyBlob(const uint8_t* der, size_t derLen, uint8_t* out, uint32_t* length) {
  if (length == nullptr) return provider::kErrInvalidParameter;
  Span parts[kDerIntegers];
  if (der == nullptr || !SplitDer(der, derLen, parts) || parts[kN].len % 2 != 0 ||
      parts[kN].len == 0) {
    return provider::kNteBadData;
  }
  const size_t h = parts[kN].len / 2;
  const uint32_t size = static_cast<uint32_t>(kBlobHeaderSize + 9 * h);
  if (out == nullptr) {
    *length = size;
    return provider::kOk;
  }
  if (*length < size) {
    *length = size;
    return provider::kErrMoreData;
  }
  if (parts[kE].len > sizeof(DWORD)) return provider::kNteBadData;
  BLOBHEADER blobHeader{PRIVATEKEYBLOB, CUR_BLOB_VERSION, 0, CALG_RSA_KEYX};
  RSAPUBKEY rsa{kMagicRsa2, static_cast<DWORD>(8 * parts[kN].len), 0};
  for (size_t i = 0; i < parts[kE].len; ++i) rsa.pubexp = (rsa.pubexp << 8) | parts[kE].data[i];
  std::memcpy(out, &blobHeader, sizeof(blobHeader));
  std::memcpy(out + sizeof(blobHeader), &rsa, sizeof(rsa));
  // The blob's order: modulus, prime1, prime2, exponent1, exponent2, coefficient, private exponent.
  const struct { DerIndex index; size_t width; } layout[] = {
      {kN, 2 * h}, {kP, h}, {kQ, h}, {kDP, h}, {kDQ, h}, {kQInv, h}, {kD, 2 * h}};
  uint8_t* at = out + kBlobHeaderSize;
  for (const auto& field : layout) {
    if (!PutLittleEndian(parts[field.index], field.width, at)) return provider::kNteBadData;
    at += field.width;
  }
  *length = size;
  return provider::kOk;
}

Status SystemProviderDecrypt(uint8_t* buffer, uint32_t* length) {
  size_t derLen = 0;
  if (crypto::RsaHandleExportKey(TransportKey(), crypto::kRsaFormPrivate, nullptr, &derLen) !=
      crypto::kOk) {
    return provider::kNteFail;
  }
  std::vector<uint8_t> der(derLen);
  if (crypto::RsaHandleExportKey(TransportKey(), crypto::kRsaFormPrivate, der.data(), &derLen) !=
      crypto::kOk) {
    return provider::kNteFail;
  }
  std::vector<uint8_t> blob(kPrivateBlobCapacity);
  uint32_t blobLen = static_cast<uint32_t>(blob.size());
  Status status = DerToPrivateKeyBlob(der.data(), der.size(), blob.data(), &blobLen);
  crypto::Wipe(der.data(), der.size());
  if (status != provider::kOk) return status;

  TemporaryKeySet keySet;
  const bool imported = keySet.Acquire() && keySet.Import(blob.data(), blobLen);
  status = imported ? provider::kOk : LastStatus();
  crypto::Wipe(blob.data(), blob.size());
  if (!imported) return status;
  if (*length > kMaxCiphertext) return provider::kNteBadData;
  std::vector<uint8_t> work(buffer, buffer + *length);
  std::reverse(work.begin(), work.end());  // CryptoAPI takes little-endian
  DWORD workLen = *length;
  if (!CryptDecrypt(keySet.Key(), 0, TRUE, 0, work.data(), &workLen)) return LastStatus();
  std::memcpy(buffer, work.data(), workLen);
  *length = workLen;
  crypto::Wipe(work.data(), work.size());
  return provider::kOk;
}

}  // namespace nivra::service
