#include "pkcs11/private_key_blob.h"

#include <windows.h>
#include <wincrypt.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "crypto/rsa_interface.h"
#include "crypto/rsa_key.h"

namespace nivra::pkcs11 {

namespace {

constexpr uint32_t kRsa2Magic = 0x32415352;  // "RSA2"
constexpr size_t kBlobHeadSize = sizeof(BLOBHEADER) + sizeof(RSAPUBKEY);
static_assert(kBlobHeadSize == 20, "BLOBHEADER and RSAPUBKEY");

// Where each value sits in the blob, in its published order, and which component it loads.
struct BlobField {
  uint32_t component;
  bool fullLength;  // bit length / 8 bytes, else bit length / 16
};
constexpr BlobField kBlobFields[] = {
    {crypto::kRsaComponentN, true},     {crypto::kRsaComponentP, false},
    {crypto::kRsaComponentQ, false},    {crypto::kRsaComponentDP, false},
    {crypto::kRsaComponentDQ, false},   {crypto::kRsaComponentQInv, false},
    {crypto::kRsaComponentD, true},
};

// Owns a key of the crypto library for the parse.
class KeyHandle {
 public:
  ~KeyHandle() {
    if (handle_ != 0) crypto::RsaFreeKey(handle_);
  }
  bool Create() { return crypto::RsaNewKey(&handle_) == crypto::kOk; }
  crypto::RsaHandle get() const { return handle_; }

 private:
  crypto::RsaHandle handle_ = 0;
};

bool LoadComponent(crypto::RsaHandle key, uint32_t component, std::vector<uint8_t>& bigEndian) {
  const bool ok = crypto::RsaHandleSetKey(key, component, bigEndian.data(), bigEndian.size()) ==
                  crypto::kOk;
  SecureZeroMemory(bigEndian.data(), bigEndian.size());
  return ok;
}

bool ReadComponent(crypto::RsaHandle key, uint32_t component, std::vector<uint8_t>* value) {
  size_t length = 0;
  if (crypto::RsaHandleExportKey(key, component, nullptr, &length) != crypto::kOk) return false;
  value->assign(length, 0);
  if (length == 0) return false;
  if (crypto::RsaHandleExportKey(key, component, value->data(), &length) != crypto::kOk) {
    return false;
  }
  value->resize(length);
  return true;
}

}  // namespace

Status ParsePrivateKeyBlob(const uint8_t* blob, uint32_t length, RsaComponents* key) {
  if (blob == nullptr || length < kBlobHeadSize) return provider::kNteBadData;
  BLOBHEADER header;
  RSAPUBKEY rsa;
  std::memcpy(&header, blob, sizeof(header));
  std::memcpy(&rsa, blob + sizeof(header), sizeof(rsa));
  if (header.bType != PRIVATEKEYBLOB || rsa.magic != kRsa2Magic || rsa.bitlen == 0) {
    return provider::kNteBadData;
  }
  const size_t full = (size_t{rsa.bitlen} + 7) / 8;
  const size_t half = (size_t{rsa.bitlen} + 15) / 16;
  if (length < kBlobHeadSize + 2 * full + 5 * half) return provider::kNteBadData;

  KeyHandle handle;
  if (!handle.Create()) return provider::kNteBadData;
  const uint8_t exponent[] = {static_cast<uint8_t>(rsa.pubexp >> 24),
                              static_cast<uint8_t>(rsa.pubexp >> 16),
                              static_cast<uint8_t>(rsa.pubexp >> 8),
                              static_cast<uint8_t>(rsa.pubexp)};
  std::vector<uint8_t> value(exponent, exponent + sizeof(exponent));
  if (!LoadComponent(handle.get(), crypto::kRsaComponentE, value)) return provider::kNteBadData;
  size_t offset = kBlobHeadSize;
  for (const BlobField& field : kBlobFields) {
    const size_t size = field.fullLength ? full : half;
    value.assign(blob + offset, blob + offset + size);
    std::reverse(value.begin(), value.end());
    offset += size;
    if (!LoadComponent(handle.get(), field.component, value)) return provider::kNteBadData;
  }

  const bool read = ReadComponent(handle.get(), crypto::kRsaComponentN, &key->modulus) &&
                    ReadComponent(handle.get(), crypto::kRsaComponentE, &key->publicExponent) &&
                    ReadComponent(handle.get(), crypto::kRsaComponentP, &key->prime1) &&
                    ReadComponent(handle.get(), crypto::kRsaComponentQ, &key->prime2) &&
                    ReadComponent(handle.get(), crypto::kRsaComponentD, &key->privateExponent) &&
                    ReadComponent(handle.get(), crypto::kRsaComponentDP, &key->exponent1) &&
                    ReadComponent(handle.get(), crypto::kRsaComponentDQ, &key->exponent2) &&
                    ReadComponent(handle.get(), crypto::kRsaComponentQInv, &key->coefficient);
  return read ? provider::kOk : provider::kNteBadData;
}

}  // namespace nivra::pkcs11
