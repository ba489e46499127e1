// RSA key generation and the completion of a key from its two primes.
#include "crypto/rsa_key.h"

namespace nivra::crypto {

namespace {

// One generation attempt on a cleared key: kOk, or any failure (the caller retries).
Status GenerateAttempt(CRSA& key, uint32_t bits, uint32_t e) {
  if (key.e.SetWord(e) != 0) return kErrNoMemory;
  if (key.p.Random((bits + 1) / 2) != 0 || key.p.NextPrime(e) < 0) return kErrGeneric;
  // Primes closer than 2^(bits/2 - 5) are rejected: q is drawn again until it is that far away.
  const uint32_t minDistanceBits = bits / 2 > 5 ? bits / 2 - 5 : 0;
  CBigNumber distance;
  for (;;) {
    if (key.q.Random(bits / 2) != 0 || distance.CopyFrom(key.q) != 0) return kErrGeneric;
    if (distance.Sub(key.p) < 0) return kErrNoMemory;
    if (distance.BitLength() >= minDistanceBits) break;
  }
  if (key.q.NextPrime(e) < 0) return kErrGeneric;
  if (RsaCompleteComponents(key) != kOk) return kErrGeneric;
  // A prime search that ran past the top of its range would give a longer modulus.
  return key.n.BitLength() == bits ? kOk : kErrGeneric;
}

}  // namespace

Status RsaCompleteComponents(CRSA& key) {
  if (key.p.Compare(key.q) < 0) key.p.Swap(key.q);
  CBigNumber p1, q1, phi;
  if (key.n.Mul(key.p, key.q) != 0 || p1.CopyFrom(key.p) != 0 || q1.CopyFrom(key.q) != 0) {
    return kErrGeneric;
  }
  if (p1.SubWord(1) != 0 || q1.SubWord(1) != 0) return kErrGeneric;  // a zero prime
  if (phi.Mul(p1, q1) != 0) return kErrGeneric;
  if (key.d.ModInverse(key.e, phi) != 0) return kErrGeneric;
  if (key.dP.Mod(key.d, p1) != 0 || key.dQ.Mod(key.d, q1) != 0) return kErrGeneric;
  if (key.qInv.ModInverse(key.q, key.p) != 0) return kErrGeneric;
  key.hasCrt = key.hasPrivate = key.hasPublic = 1;
  return kOk;
}

Status RsaCompleteKey(CRSA* key, uint32_t* bits) {
  if (key == nullptr) return kErrNullArgument;
  if (key->p.IsZero() || key->q.IsZero() || key->e.IsZero()) return kErrMissingComponent;
  if (RsaCompleteComponents(*key) != kOk) return kErrGeneric;
  if (bits != nullptr) *bits = key->n.BitLength();
  return kOk;
}

Status RsaGenerateKey(CRSA** out, uint32_t bits, uint32_t e) {
  if (out == nullptr) return kErrNullArgument;
  CRSA* key = nullptr;
  Status status = RsaCreateKey(&key);
  if (status != kOk) return status;
  for (int attempt = 0; attempt < kRsaKeyGenAttempts; ++attempt) {
    key->Clear();
    if (GenerateAttempt(*key, bits, e) == kOk) {
      *out = key;
      return kOk;
    }
  }
  RsaDestroyKey(key);
  return kErrKeyGenFailed;
}

}  // namespace nivra::crypto
