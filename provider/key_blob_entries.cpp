// NivraCPExportKey and NivraCPImportKey: key blobs in CryptoAPI's formats. Private keys never
// leave the card or the software provider.

#include <algorithm>
#include <cstring>
#include <vector>

#include "provider/call_frame.h"
#include "provider/card_dispatch.h"
#include "provider/context_objects.h"
#include "provider/entries.h"
#include "provider/key_routing.h"

namespace nivra::provider {

namespace {

constexpr DWORD kBlobHeaderSize = sizeof(BLOBHEADER);                      // 8
constexpr DWORD kPublicBlobHeaderSize = sizeof(BLOBHEADER) + sizeof(RSAPUBKEY);  // 20
constexpr DWORD kSimpleBlobHeaderSize = sizeof(BLOBHEADER) + sizeof(ALG_ID);     // 12
constexpr DWORD kRsa1Magic = 0x31415352;  // "RSA1"
constexpr uint32_t kMaxSessionKeyBytes = 1024;
constexpr DWORD kPublicBlobCapacity = 1024;

bool IsSoftwareRsa(const KeyObject& key) { return key.IsModuleRsa() && key.softKey != 0; }

// PUBLICKEYBLOB of a card pair or a module-held key, built by the module.
Status BuildPublicKeyBlob(const ProviderContext& ctx, const KeyObject& key, BYTE* out,
                          DWORD* length) {
  const RsaPublicView rsaKey = PublicPartOf(ctx, key);
  const DWORD modulusBytes = (rsaKey.bits + 7) / 8;
  std::vector<uint8_t> blob(kPublicBlobHeaderSize + modulusBytes);
  auto* header = reinterpret_cast<BLOBHEADER*>(blob.data());
  header->bType = PUBLICKEYBLOB;
  header->bVersion = CUR_BLOB_VERSION;
  header->reserved = 0;
  header->aiKeyAlg = key.algId == AT_KEYEXCHANGE ? CALG_RSA_KEYX
                     : key.algId == AT_SIGNATURE ? CALG_RSA_SIGN
                                                 : key.algId;
  auto* rsa = reinterpret_cast<RSAPUBKEY*>(blob.data() + kBlobHeaderSize);
  rsa->magic = kRsa1Magic;
  rsa->bitlen = rsaKey.bits;
  rsa->pubexp = rsaKey.exponent;
  std::reverse_copy(rsaKey.modulus, rsaKey.modulus + modulusBytes, blob.data() + kPublicBlobHeaderSize);
  return CopyOut(blob.data(), static_cast<DWORD>(blob.size()), out, length);
}

// A session key wrapped for a card pair: the pair's public key goes through the software
// provider just long enough to export under it.
Outcome ExportUnderCardPair(ProviderContext& ctx, const KeyObject& session,
                            const KeyObject& pair, BYTE* out, DWORD* length) {
  BYTE publicBlob[kPublicBlobCapacity];
  DWORD publicLength = sizeof(publicBlob);
  Status status = BuildPublicKeyBlob(ctx, pair, publicBlob, &publicLength);
  if (status != kOk) return Outcome::Failure(status);
  reinterpret_cast<BLOBHEADER*>(publicBlob)->aiKeyAlg = CALG_RSA_KEYX;
  HCRYPTKEY wrapping = 0;
  if (!CryptImportKey(ctx.softProv, publicBlob, publicLength, 0, 0, &wrapping)) {
    return Outcome::SoftwareFailure();
  }
  BOOL ok = CryptExportKey(session.softKey, wrapping, SIMPLEBLOB, 0, out, length);
  Outcome outcome = ok ? Outcome::Success() : Outcome::SoftwareFailure();
  CryptDestroyKey(wrapping);
  return outcome;
}

Outcome ExportKey(ProviderContext& ctx, KeyObject& key, KeyObject* wrap, DWORD blobType,
                  BYTE* out, DWORD* length) {
  switch (blobType) {
    case SIMPLEBLOB: {
      if (!RoutesToSoftware(key) || key.modulusBits != 0 || !(key.flags & CRYPT_EXPORTABLE)) {
        return Outcome::Failure(kNteBadKeyState);
      }
      if (wrap == nullptr || wrap->owner != &ctx) {
        return Outcome::Failure(kNteBadUid);
      }
      if (wrap->IsContainerPair()) return ExportUnderCardPair(ctx, key, *wrap, out, length);
      if (!IsSoftwareRsa(*wrap)) return Outcome::Failure(kNteBadKey);
      if (!CryptExportKey(key.softKey, wrap->softKey, SIMPLEBLOB, 0, out, length)) {
        return Outcome::SoftwareFailure();
      }
      return Outcome::Success();
    }
    case PUBLICKEYBLOB:
      if (IsSoftwareRsa(key)) {
        if (!CryptExportKey(key.softKey, 0, PUBLICKEYBLOB, 0, out, length)) {
          return Outcome::SoftwareFailure();
        }
        return Outcome::Success();
      }
      if (!key.IsContainerPair() && !key.IsModuleRsa()) return Outcome::Failure(kNteBadPublicKey);
      return Outcome::FromStatus(BuildPublicKeyBlob(ctx, key, out, length));
    case PRIVATEKEYBLOB:
      return Outcome::Failure(kNteBadKeyState);
    case PLAINTEXTKEYBLOB:
      if (key.IsContainerPair()) return Outcome::Failure(kNteBadKeyState);
      if (!CryptExportKey(key.softKey, 0, PLAINTEXTKEYBLOB, 0, out, length)) {
        return Outcome::SoftwareFailure();
      }
      return Outcome::Success();
    default:
      return Outcome::Failure(kNteBadType);
  }
}

// SIMPLEBLOB: the session key is decrypted on the card and handed to the software provider as
// a PLAINTEXTKEYBLOB.
Status ImportSimpleBlob(ProviderContext& ctx, KeyObject& key, const BYTE* blob, DWORD length,
                        const KeyObject* wrap, DWORD flags) {
  uint32_t keySpec = AT_KEYEXCHANGE;
  if (wrap != nullptr) {
    if (!wrap->IsContainerPair()) return kNteBadKey;
    if (wrap->owner != &ctx) return kNteBadUid;
    keySpec = wrap->algId;
  }
  if (length < kSimpleBlobHeaderSize) return kNteBadLen;
  std::vector<uint8_t> plain(kBlobHeaderSize + sizeof(DWORD) + kMaxSessionKeyBytes);
  uint32_t keyLength = kMaxSessionKeyBytes;
  Status status = CardPrivateKeyOp(ctx, keySpec, (flags & CRYPT_OAEP) ? CardModeOaep : CardModeEncryption,
                                   blob + kSimpleBlobHeaderSize, length - kSimpleBlobHeaderSize,
                                   plain.data() + kBlobHeaderSize + sizeof(DWORD), &keyLength);
  if (status == kOk) {
    std::memcpy(plain.data(), blob, kBlobHeaderSize);
    reinterpret_cast<BLOBHEADER*>(plain.data())->bType = PLAINTEXTKEYBLOB;
    std::memcpy(plain.data() + kBlobHeaderSize, &keyLength, sizeof(DWORD));
    if (!CryptImportKey(ctx.softProv, plain.data(), keyLength + kSimpleBlobHeaderSize, 0, flags,
                        &key.softKey)) {
      status = GetLastError();
    }
  }
  SecureZeroMemory(plain.data(), plain.size());
  return status;
}

Status ImportPublicKeyBlob(KeyObject& key, const BYTE* blob, DWORD length) {
  const auto* header = reinterpret_cast<const BLOBHEADER*>(blob);
  if (header->aiKeyAlg != CALG_RSA_SIGN && header->aiKeyAlg != CALG_RSA_KEYX) return kNteBadData;
  if (length < kPublicBlobHeaderSize) return kNteBadLen;
  const auto* rsa = reinterpret_cast<const RSAPUBKEY*>(blob + kBlobHeaderSize);
  const uint32_t modulusBytes = (rsa->bitlen + 7) / 8;
  if (rsa->magic != kRsa1Magic || modulusBytes == 0 || modulusBytes > kMaxModulusBytes) {
    return kNteBadData;
  }
  if (length < kPublicBlobHeaderSize + modulusBytes) return kNteBadLen;
  key.modulusBits = rsa->bitlen;
  key.publicExponent = rsa->pubexp;
  key.modulusBytes = modulusBytes;
  const BYTE* modulus = blob + kPublicBlobHeaderSize;
  std::reverse_copy(modulus, modulus + modulusBytes, key.modulus);
  return kOk;
}

Outcome ImportKey(ProviderContext& ctx, const BYTE* blob, DWORD length, const KeyObject* wrap,
                  DWORD flags, HCRYPTKEY* phKey) {
  if (blob == nullptr) return Outcome::Failure(kErrInvalidParameter);
  if (length < kBlobHeaderSize) return Outcome::Failure(kNteBadLen);
  const auto* header = reinterpret_cast<const BLOBHEADER*>(blob);
  KeyObject* key = NewKeyObject(ctx);
  key->flags = flags;
  key->algId = header->aiKeyAlg;
  Status status = kOk;
  switch (header->bType) {
    case SIMPLEBLOB:
      status = ImportSimpleBlob(ctx, *key, blob, length, wrap, flags);
      break;
    case PUBLICKEYBLOB:
      status = ImportPublicKeyBlob(*key, blob, length);
      break;
    case PRIVATEKEYBLOB:
      if (header->aiKeyAlg == AT_KEYEXCHANGE || header->aiKeyAlg == CALG_RSA_KEYX) {
        key->algId = AT_KEYEXCHANGE;
      } else if (header->aiKeyAlg == AT_SIGNATURE || header->aiKeyAlg == CALG_RSA_SIGN) {
        key->algId = AT_SIGNATURE;
      } else {
        status = kNteBadType;
        break;
      }
      status = CardImportKeyPair(ctx, *key, blob, length);
      break;
    case PLAINTEXTKEYBLOB:
      if (!CryptImportKey(ctx.softProv, blob, length, 0, flags, &key->softKey)) {
        status = GetLastError();
      }
      break;
    default:
      status = kNteBadType;
      break;
  }
  if (status != kOk) {
    DestroyKeyObject(ctx, key);
    return Outcome::Failure(status);
  }
  *phKey = PublishKey(ctx, key);
  return Outcome::Success();
}

}  // namespace

}  // namespace nivra::provider

using namespace nivra::provider;

NIVRA_ENTRY NivraCPExportKey(HCRYPTPROV hProv, HCRYPTKEY hKey, HCRYPTKEY hPubKey,
                             DWORD dwBlobType, DWORD dwFlags, BYTE* pbData,
                             DWORD* pdwDataLen) noexcept {
  return RunWithObjects(hProv, RequiredKey(hKey), OptionalKey(hPubKey),
                        [&](ProviderContext& ctx, KeyObject* key, KeyObject* wrap) {
    if (pdwDataLen == nullptr) return Outcome::Failure(kErrInvalidParameter);
    if (dwFlags != 0) {
      *pdwDataLen = 0;
      return Outcome::Failure(kNteBadFlags);
    }
    return ExportKey(ctx, *key, wrap, dwBlobType, pbData, pdwDataLen);
  });
}

NIVRA_ENTRY NivraCPImportKey(HCRYPTPROV hProv, const BYTE* pbData, DWORD dwDataLen,
                             HCRYPTKEY hPubKey, DWORD dwFlags, HCRYPTKEY* phKey) noexcept {
  if (!ClearOutHandle(phKey)) return FALSE;
  return RunWithObjects(hProv, OptionalKey(hPubKey), [&](ProviderContext& ctx, KeyObject* wrap) {
    return ImportKey(ctx, pbData, dwDataLen, wrap, dwFlags, phKey);
  });
}
