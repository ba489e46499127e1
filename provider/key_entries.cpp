// Key handles stand for a container key pair on the card (AT_KEYEXCHANGE, AT_SIGNATURE), an RSA
// public key the module holds itself (imported from a PUBLICKEYBLOB), or a key of the software
// provider. These entries route each to where it lives.

#include <cstdint>
#include <cstring>
#include <vector>

#include "crypto/der.h"
#include "provider/call_frame.h"
#include "provider/card_dispatch.h"
#include "provider/context_objects.h"
#include "provider/entries.h"
#include "provider/key_routing.h"
#include "provider/module_rsa.h"
#include "provider/pin_submission.h"

namespace nivra::provider {

namespace {

constexpr DWORD kDefaultCardKeyBits = 2048;

Outcome GenKey(ProviderContext& ctx, ALG_ID algId, DWORD flags, HCRYPTKEY* phKey) {
  if ((flags & CRYPT_USER_PROTECTED) && ctx.silent) return Outcome::Failure(kNteSilentContext);
  const bool cardPair = algId == AT_KEYEXCHANGE || algId == AT_SIGNATURE;
  if (cardPair && ctx.verifyOnly) return Outcome::Failure(kNtePerm);
  KeyObject* key = NewKeyObject(ctx);
  key->flags = flags;
  key->algId = algId;
  if (cardPair) {
    const uint32_t bits = flags > 0xFFFF ? flags >> 16 : kDefaultCardKeyBits;
    Status status = EnsureCardCaps(ctx);
    if (status == kOk && (bits < ctx.caps.minBits || bits > ctx.caps.maxBits ||
                          ctx.caps.incrementBits == 0 ||
                          (bits - ctx.caps.minBits) % ctx.caps.incrementBits != 0)) {
      status = kNteBadFlags;
    }
    if (status == kOk) status = CardGenKeyPair(ctx, algId, bits);
    if (status != kOk) {
      DestroyKeyObject(ctx, key);
      return Outcome::Failure(status);
    }
  } else if (!CryptGenKey(ctx.softProv, algId, flags, &key->softKey)) {
    Outcome failure = Outcome::SoftwareFailure();
    DestroyKeyObject(ctx, key);
    return failure;
  }
  *phKey = PublishKey(ctx, key);
  return Outcome::Success();
}

// The DER length of a certificate (header and content) from its own header. The parameter comes
// with no buffer size, so the header is read as the longest one the reader accepts; false for a
// header in another form or a length that does not fit in 32 bits.
bool CertificateLength(const BYTE* der, uint32_t* total) {
  uint8_t tag = 0;
  size_t header = 0;
  size_t content = 0;
  if (!crypto::ReadDerHeader(der, crypto::kDerLongestHeader, &tag, &header, &content) ||
      content > UINT32_MAX - header) {
    return false;
  }
  *total = static_cast<uint32_t>(header + content);
  return true;
}

Outcome SetCertificate(ProviderContext& ctx, const KeyObject& key, const BYTE* der) {
  if (ctx.verifyOnly) return Outcome::Failure(kNtePerm);
  if (!key.IsContainerPair()) return Outcome::Failure(kNteFail);
  uint32_t total = 0;
  if (der == nullptr || !CertificateLength(der, &total)) return Outcome::Failure(kNteBadData);
  PCCERT_CONTEXT cert = CertCreateCertificateContext(X509_ASN_ENCODING, der, total);
  if (cert == nullptr) return Outcome::Failure(kNteBadData);
  CertFreeCertificateContext(cert);
  return Outcome::FromStatus(CardWriteCert(ctx, key.algId, der, total));
}

Outcome SetKeyParam(ProviderContext& ctx, KeyObject& key, DWORD param, BYTE* data, DWORD flags) {
  switch (param) {
    case KP_CERTIFICATE:
      return SetCertificate(ctx, key, data);
    case KP_KEYEXCHANGE_PIN:
    case KP_SIGNATURE_PIN:
      if (ctx.verifyOnly) return Outcome::Failure(kNtePerm);
      if (data == nullptr) return Outcome::Failure(kErrInvalidParameter);
      return Outcome::FromStatus(SubmitPin(ctx, data));
    default:
      if (!CryptSetKeyParam(key.softKey, param, data, flags)) return Outcome::SoftwareResult(FALSE);
      return Outcome::Success();
  }
}

// Parameters that the module answers itself for card pairs and module-held RSA keys.
Outcome GetRsaKeyParam(ProviderContext& ctx, const KeyObject& key, DWORD param, BYTE* data,
                       DWORD* length) {
  DWORD value = 0;
  switch (param) {
    case KP_PADDING:
      value = PKCS5_PADDING;
      break;
    case KP_MODE:
      value = key.mode;
      break;
    case KP_PERMISSIONS:
      if (!key.IsContainerPair()) return Outcome::Failure(kNteBadType);
      value = CRYPT_ENCRYPT | CRYPT_DECRYPT;
      break;
    case KP_ALGID:
      value = key.algId == AT_KEYEXCHANGE ? CALG_RSA_KEYX
              : key.algId == AT_SIGNATURE ? CALG_RSA_SIGN
                                          : key.algId;
      break;
    case KP_BLOCKLEN:
    case KP_KEYLEN:
      value = RsaModulusBits(ctx, key);
      break;
    case KP_EFFECTIVE_KEYLEN:
      value = key.effectiveKeyLength;
      break;
    default:
      return Outcome::Failure(kNteBadType);
  }
  return Outcome::FromStatus(CopyOut(&value, sizeof(value), data, length));
}

Outcome GetKeyParam(ProviderContext& ctx, KeyObject& key, DWORD param, BYTE* data, DWORD* length,
                    DWORD flags) {
  if (length == nullptr) return Outcome::Failure(kErrInvalidParameter);
  if (param == KP_CERTIFICATE) {
    uint32_t len = *length;
    Status status = CardReadCert(ctx, key.algId, data, &len);
    *length = len;
    return Outcome::FromStatus(status);
  }
  if (RoutesToSoftware(key)) {
    if (key.softKey == 0) return Outcome::Failure(kNteBadType);
    if (!CryptGetKeyParam(key.softKey, param, data, length, flags)) {
      return Outcome::SoftwareFailure();
    }
    return Outcome::Success();
  }
  return GetRsaKeyParam(ctx, key, param, data, length);
}

Outcome Encrypt(ProviderContext& ctx, KeyObject& key, BOOL final, DWORD flags, BYTE* data,
                DWORD* length, DWORD bufLen) {
  if (RoutesToSoftware(key)) {
    return Outcome::SoftwareResult(CryptEncrypt(key.softKey, 0, final, flags, data, length, bufLen));
  }
  const DWORD k = (RsaModulusBits(ctx, key) + 7) / 8;
  if (data == nullptr) {
    *length = k;
    return Outcome::Success();
  }
  if (bufLen < k) {
    *length = k;
    return Outcome::Failure(kNteBadLen);
  }
  const uint32_t mode = (flags & CRYPT_OAEP) ? CardModeOaep : CardModeEncryption;
  std::vector<uint8_t> input(data, data + *length);
  uint32_t outLength = bufLen;
  Status status = key.IsContainerPair()
                      ? CardPublicKeyOp(ctx, key, mode, input.data(),
                                        static_cast<uint32_t>(input.size()), data, &outLength)
                      : ModuleRsaPublicOp(key, mode, input.data(),
                                          static_cast<uint32_t>(input.size()), data, &outLength);
  SecureZeroMemory(input.data(), input.size());
  if (status != kOk) {
    *length = 0;
    return Outcome::Failure(status);
  }
  *length = outLength;
  return Outcome::Success();
}

uint32_t DecryptMode(DWORD flags) {
  if (flags & CRYPT_DECRYPT_RSA_NO_PADDING_CHECK) return CardModeRaw;
  if (flags & CRYPT_OAEP) return CardModeOaep;
  return CardModeEncryption;
}

Outcome Decrypt(ProviderContext& ctx, KeyObject& key, BOOL final, DWORD flags, BYTE* data,
                DWORD* length) {
  if (length == nullptr) return Outcome::Failure(kErrInvalidParameter);
  if ((flags & CRYPT_OAEP) && (flags & CRYPT_DECRYPT_RSA_NO_PADDING_CHECK)) {
    return Outcome::Failure(kNteBadFlags);
  }
  if (!key.IsContainerPair()) {
    return Outcome::SoftwareResult(CryptDecrypt(key.softKey, 0, final, flags, data, length));
  }
  if (ctx.verifyOnly) return Outcome::Failure(kNtePerm);
  const DWORD k = (ctx.KeyPair(key.algId).modulusBits + 7) / 8;
  if (*length != k) return Outcome::Failure(kNteBadData);
  if (data == nullptr) return Outcome::Success();
  std::vector<uint8_t> input(data, data + k);
  uint32_t outLength = k;
  Status status = CardPrivateKeyOp(ctx, key.algId, DecryptMode(flags), input.data(), k, data,
                                   &outLength);
  SecureZeroMemory(input.data(), input.size());
  if (status == kOk) *length = outLength;
  return Outcome::FromStatus(status);
}

}  // namespace

}  // namespace nivra::provider

using namespace nivra::provider;

NIVRA_ENTRY NivraCPGenKey(HCRYPTPROV hProv, ALG_ID Algid, DWORD dwFlags, HCRYPTKEY* phKey) noexcept {
  if (!ClearOutHandle(phKey)) return FALSE;
  return RunInContext(hProv, [&](ProviderContext& ctx) { return GenKey(ctx, Algid, dwFlags, phKey); });
}

NIVRA_ENTRY NivraCPDeriveKey(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTHASH hBaseData, DWORD dwFlags,
                             HCRYPTKEY* phKey) noexcept {
  if (!ClearOutHandle(phKey)) return FALSE;
  return RunWithObjects(hProv, RequiredHash(hBaseData), [&](ProviderContext& ctx, HashObject* hash) {
    KeyObject* key = NewKeyObject(ctx);
    key->algId = Algid;
    key->flags = dwFlags;
    if (!CryptDeriveKey(ctx.softProv, Algid, hash->softHash, dwFlags, &key->softKey)) {
      Outcome failure = Outcome::SoftwareFailure();
      DestroyKeyObject(ctx, key);
      return failure;
    }
    *phKey = PublishKey(ctx, key);
    return Outcome::Success();
  });
}

NIVRA_ENTRY NivraCPDestroyKey(HCRYPTPROV hProv, HCRYPTKEY hKey) noexcept {
  return RunWithObjects(hProv, RequiredKey(hKey), [&](ProviderContext& ctx, KeyObject* key) {
    DestroyKeyObject(ctx, key);
    return Outcome::Success();
  });
}

NIVRA_ENTRY NivraCPGetUserKey(HCRYPTPROV hProv, DWORD dwKeySpec, HCRYPTKEY* phUserKey) noexcept {
  if (!ClearOutHandle(phUserKey)) return FALSE;
  return RunInContext(hProv, [&](ProviderContext& ctx) {
    if (dwKeySpec != AT_KEYEXCHANGE && dwKeySpec != AT_SIGNATURE) {
      return Outcome::Failure(kNteBadKey);
    }
    Status status = CardLoadKeyPair(ctx, dwKeySpec);
    if (status != kOk) return Outcome::Failure(status);
    KeyObject* key = NewKeyObject(ctx);
    key->algId = dwKeySpec;
    *phUserKey = PublishKey(ctx, key);
    return Outcome::Success();
  });
}

NIVRA_ENTRY NivraCPSetKeyParam(HCRYPTPROV hProv, HCRYPTKEY hKey, DWORD dwParam, BYTE* pbData,
                               DWORD dwFlags) noexcept {
  return RunWithObjects(hProv, RequiredKey(hKey), [&](ProviderContext& ctx, KeyObject* key) {
    return SetKeyParam(ctx, *key, dwParam, pbData, dwFlags);
  });
}

NIVRA_ENTRY NivraCPGetKeyParam(HCRYPTPROV hProv, HCRYPTKEY hKey, DWORD dwParam, BYTE* pbData,
                               DWORD* pdwDataLen, DWORD dwFlags) noexcept {
  return RunWithObjects(hProv, RequiredKey(hKey), [&](ProviderContext& ctx, KeyObject* key) {
    return GetKeyParam(ctx, *key, dwParam, pbData, pdwDataLen, dwFlags);
  });
}

NIVRA_ENTRY NivraCPEncrypt(HCRYPTPROV hProv, HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final,
                           DWORD dwFlags, BYTE* pbData, DWORD* pdwDataLen,
                           DWORD dwBufLen) noexcept {
  return RunWithObjects(hProv, RequiredKey(hKey), OptionalHash(hHash),
                        [&](ProviderContext& ctx, KeyObject* key, HashObject*) {
    if (pdwDataLen == nullptr) return Outcome::Failure(kErrInvalidParameter);
    return Encrypt(ctx, *key, Final, dwFlags, pbData, pdwDataLen, dwBufLen);
  });
}

NIVRA_ENTRY NivraCPDecrypt(HCRYPTPROV hProv, HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final,
                           DWORD dwFlags, BYTE* pbData, DWORD* pdwDataLen) noexcept {
  return RunWithObjects(hProv, RequiredKey(hKey), OptionalHash(hHash),
                        [&](ProviderContext& ctx, KeyObject* key, HashObject*) {
    return Decrypt(ctx, *key, Final, dwFlags, pbData, pdwDataLen);
  });
}
