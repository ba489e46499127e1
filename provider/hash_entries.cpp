// Hash objects live in the software provider; the provider wraps them and adds the two
// operations that need a key pair: signing on the card and verifying by public-key unwrapping.
#include <cstring>

#include "crypto/constant_time.h"
#include "crypto/digest_info.h"
#include "provider/call_frame.h"
#include "provider/card_dispatch.h"
#include "provider/context_objects.h"
#include "provider/entries.h"
#include "provider/module_rsa.h"

namespace nivra::provider {

namespace {

constexpr DWORD kHashValueCapacity = 36;
constexpr uint32_t kUnwrapCapacity = 512;
constexpr uint32_t kSignInputCapacity = 64;

// Reads the hash value into hash.hashValue (HP_HASHVAL); false leaves the software provider's
// last error standing.
bool FetchHashValue(HashObject& hash, DWORD* length) {
  *length = kHashValueCapacity;
  if (!CryptGetHashParam(hash.softHash, HP_HASHVAL, hash.hashValue, length, 0)) return false;
  hash.hashBits = *length * 8;
  return true;
}

const crypto::DigestInfoPrefix* PrefixFor(ALG_ID algId) {
  switch (algId) {
    case CALG_MD2:
      return crypto::DigestInfoPrefixOf(crypto::DigestAlgorithm::kMd2);
    case CALG_MD5:
      return crypto::DigestInfoPrefixOf(crypto::DigestAlgorithm::kMd5);
    case CALG_SHA1:
      return crypto::DigestInfoPrefixOf(crypto::DigestAlgorithm::kSha1);
    default:
      return nullptr;
  }
}

// The bytes that a signature block carries after its type 1 frame, as signing writes them and
// verification expects them: the bare hash with CRYPT_NOHASHOID, else the algorithm's DigestInfo
// prefix and the hash (SSL3 SHAMD5: the bare 36 bytes). False for an algorithm without one.
bool SignedEncoding(const HashObject& hash, DWORD hashLength, DWORD flags, uint8_t* out,
                      uint32_t* outLength) {
  uint32_t length = 0;
  if (!(flags & CRYPT_NOHASHOID)) {
    const crypto::DigestInfoPrefix* prefix = PrefixFor(hash.algId);
    if (prefix != nullptr) {
      std::memcpy(out, prefix->bytes, prefix->length);
      length = static_cast<uint32_t>(prefix->length);
    } else if (hash.algId != CALG_SSL3_SHAMD5) {
      return false;
    }
  }
  std::memcpy(out + length, hash.hashValue, hashLength);
  *outLength = length + hashLength;
  return true;
}

Outcome SignHash(ProviderContext& ctx, HashObject* hash, DWORD keySpec, DWORD flags,
                 BYTE* signature, DWORD* sigLen) {
  if (ctx.verifyOnly) return Outcome::Failure(kNtePerm);
  if (keySpec != AT_KEYEXCHANGE && keySpec != AT_SIGNATURE) {
    *sigLen = 0;
    return Outcome::Failure(kNteNoKey);
  }
  Status status = CardLoadKeyPair(ctx, keySpec);
  if (status != kOk) {
    *sigLen = 0;
    return Outcome::Failure(status);
  }
  const DWORD needed = (ctx.KeyPair(keySpec).modulusBits + 7) / 8;
  if (signature == nullptr) {
    *sigLen = needed;
    return Outcome::Success();
  }
  if (*sigLen < needed) {
    *sigLen = needed;
    return Outcome::Failure(kErrMoreData);
  }
  DWORD hashLength = 0;
  if (!FetchHashValue(*hash, &hashLength)) return Outcome::SoftwareResult(FALSE);

  uint8_t data[kSignInputCapacity];
  uint32_t dataLength = 0;
  if (!SignedEncoding(*hash, hashLength, flags, data, &dataLength)) {
    return Outcome::Failure(kNteBadHash);
  }

  uint32_t outLength = *sigLen;
  status = CardPrivateKeyOp(ctx, keySpec, CardModeSignature, data, dataLength, signature,
                            &outLength);
  if (status != kOk) {
    *sigLen = 0;
    return Outcome::Failure(status);
  }
  *sigLen = outLength;
  return Outcome::Success();
}

Outcome VerifySignature(ProviderContext& ctx, HashObject* hash, const BYTE* signature,
                        DWORD sigLen, KeyObject* key, DWORD flags) {
  Status status = kOk;
  DWORD hashLength = 0;
  if (!FetchHashValue(*hash, &hashLength)) return Outcome::SoftwareResult(FALSE);

  uint8_t block[kUnwrapCapacity];
  uint32_t blockLength = kUnwrapCapacity;
  if (key->IsContainerPair()) {
    status = FindCardBackend(ctx.backendKind) == nullptr
                 ? kNteBadSignature
                 : CardPublicKeyOp(ctx, *key, CardModeSignature, signature, sigLen, block,
                                   &blockLength);
  } else {
    status = ModuleRsaPublicOp(*key, CardModeSignature, signature, sigLen, block, &blockLength);
  }
  if (status != kOk) return Outcome::Failure(status == kNteFail ? kNteFail : kNteBadSignature);

  // The whole payload must be the expected encoding, length included: a check of the hash bytes
  // alone would accept blocks with other bytes around the hash, which can be forged for small
  // public exponents.
  uint8_t expected[kSignInputCapacity];
  uint32_t expectedLength = 0;
  if (!SignedEncoding(*hash, hashLength, flags, expected, &expectedLength)) {
    return Outcome::Failure(kNteBadHash);
  }
  const bool same = blockLength == expectedLength &&
                    crypto::ConstantTimeEqual(block, expected, expectedLength);
  return Outcome::FromStatus(same ? kOk : kNteBadSignature);
}

}  // namespace

}  // namespace nivra::provider

using namespace nivra::provider;

NIVRA_ENTRY NivraCPCreateHash(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTKEY hKey, DWORD dwFlags,
                              HCRYPTHASH* phHash) noexcept {
  if (!ClearOutHandle(phHash)) return FALSE;
  return RunWithObjects(hProv, OptionalKey(hKey), [&](ProviderContext& ctx, KeyObject* key) {
    HashObject* hash = NewHashObject(ctx);
    hash->algId = Algid;
    // A card key pair has no software key: a keyed hash over it gets none.
    if (!CryptCreateHash(ctx.softProv, Algid, key != nullptr ? key->softKey : 0, dwFlags,
                         &hash->softHash)) {
      Outcome failure = Outcome::SoftwareFailure();
      DestroyHashObject(ctx, hash);
      return failure;
    }
    *phHash = PublishHash(ctx, hash);
    return Outcome::Success();
  });
}

NIVRA_ENTRY NivraCPHashData(HCRYPTPROV hProv, HCRYPTHASH hHash, const BYTE* pbData,
                            DWORD dwDataLen, DWORD dwFlags) noexcept {
  return RunWithObjects(hProv, RequiredHash(hHash), [&](ProviderContext&, HashObject* hash) {
    if (!CryptHashData(hash->softHash, pbData, dwDataLen, dwFlags)) {
      return Outcome::SoftwareResult(FALSE);
    }
    return Outcome::Success();
  });
}

NIVRA_ENTRY NivraCPHashSessionKey(HCRYPTPROV hProv, HCRYPTHASH hHash, HCRYPTKEY hKey,
                                  DWORD dwFlags) noexcept {
  return RunWithObjects(hProv, RequiredHash(hHash), RequiredKey(hKey),
                        [&](ProviderContext&, HashObject* hash, KeyObject* key) {
    if (!CryptHashSessionKey(hash->softHash, key->softKey, dwFlags)) {
      return Outcome::SoftwareResult(FALSE);
    }
    return Outcome::Success();
  });
}

NIVRA_ENTRY NivraCPSetHashParam(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData,
                                DWORD dwFlags) noexcept {
  return RunWithObjects(hProv, RequiredHash(hHash), [&](ProviderContext&, HashObject* hash) {
    if (!CryptSetHashParam(hash->softHash, dwParam, pbData, dwFlags)) {
      return Outcome::SoftwareFailure();
    }
    return Outcome::Success();
  });
}

NIVRA_ENTRY NivraCPGetHashParam(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData,
                                DWORD* pdwDataLen, DWORD dwFlags) noexcept {
  return RunWithObjects(hProv, RequiredHash(hHash), [&](ProviderContext&, HashObject* hash) {
    if (!CryptGetHashParam(hash->softHash, dwParam, pbData, pdwDataLen, dwFlags)) {
      return Outcome::SoftwareFailure();
    }
    return Outcome::Success();
  });
}

NIVRA_ENTRY NivraCPDestroyHash(HCRYPTPROV hProv, HCRYPTHASH hHash) noexcept {
  return RunWithObjects(hProv, RequiredHash(hHash), [&](ProviderContext& ctx, HashObject* hash) {
    DestroyHashObject(ctx, hash);
    return Outcome::Success();
  });
}

NIVRA_ENTRY NivraCPSignHash(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD dwKeySpec, LPCWSTR,
                            DWORD dwFlags, BYTE* pbSignature, DWORD* pdwSigLen) noexcept {
  return RunWithObjects(hProv, RequiredHash(hHash), [&](ProviderContext& ctx, HashObject* hash) {
    return SignHash(ctx, hash, dwKeySpec, dwFlags, pbSignature, pdwSigLen);
  });
}

NIVRA_ENTRY NivraCPVerifySignature(HCRYPTPROV hProv, HCRYPTHASH hHash, const BYTE* pbSignature,
                                   DWORD dwSigLen, HCRYPTKEY hPubKey, LPCWSTR,
                                   DWORD dwFlags) noexcept {
  return RunWithObjects(hProv, RequiredHash(hHash), RequiredKey(hPubKey),
                        [&](ProviderContext& ctx, HashObject* hash, KeyObject* key) {
    return VerifySignature(ctx, hash, pbSignature, dwSigLen, key, dwFlags);
  });
}

NIVRA_ENTRY NivraCPGenRandom(HCRYPTPROV hProv, DWORD dwLen, BYTE* pbBuffer) noexcept {
  return RunInContext(hProv, [&](ProviderContext& ctx) {
    return Outcome::SoftwareResult(CryptGenRandom(ctx.softProv, dwLen, pbBuffer));
  });
}
