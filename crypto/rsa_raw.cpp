// Raw RSA: the public operation and the private operation, by the CRT or with d.
#include "crypto/rsa_key.h"

namespace nivra::crypto {

namespace {

// Loads the input after the common argument checks; modulusBytes is the length len must have.
Status LoadInput(CBigNumber& c, const uint8_t* in, size_t len, uint32_t modulusBytes) {
  if (len != modulusBytes) return kErrInputLength;
  if (c.FromBytes(in, 0, static_cast<uint32_t>(len)) != 0) return kErrNoMemory;
  return kOk;
}

// Writes m right-aligned into exactly len bytes; kErrGeneric when it would not fit.
Status StoreOutput(const CBigNumber& m, uint8_t* out, size_t len, size_t* outLen) {
  if (m.ToBytes(out, static_cast<uint32_t>(len), nullptr) == 0) return kErrGeneric;
  if (outLen != nullptr) *outLen = len;
  return kOk;
}

// m = c^d mod n by the CRT: m1 = c^dP mod p, m2 = c^dQ mod q, h = qInv (m1 - m2) mod p,
// m = m2 + h q. kErrGeneric on any failure.
Status CrtExponentiate(const CRSA& key, const CBigNumber& c, CBigNumber& m) {
  CBigNumber cp, cq, m1, m2, h;
  if (cp.Mod(c, key.p) != 0 || cq.Mod(c, key.q) != 0) return kErrGeneric;
  if (m1.ModExp(cp, key.dP, key.p) != 0 || m2.ModExp(cq, key.dQ, key.q) != 0) return kErrGeneric;
  // m1 - m2 modulo p, taking m2 modulo p first so that a key whose q exceeds p works too.
  if (h.Mod(m2, key.p) != 0) return kErrGeneric;
  if (m1.Compare(h) < 0 && m1.Add(key.p) != 0) return kErrGeneric;
  if (m1.Sub(h) < 0) return kErrGeneric;
  if (h.Mul(key.qInv, m1) != 0 || h.Mod(h, key.p) != 0) return kErrGeneric;
  if (m.Mul(h, key.q) != 0 || m.Add(m2) != 0) return kErrGeneric;
  return kOk;
}

}  // namespace

Status RsaPublic(const CRSA* key, const uint8_t* in, size_t len, uint8_t* out, size_t* outLen) {
  if (key == nullptr || in == nullptr || out == nullptr) return kErrNullArgument;
  if (!key->hasPublic) return kErrMissingComponent;
  CBigNumber c, m;
  Status status = LoadInput(c, in, len, key->ModulusBytes());
  if (status != kOk) return status;
  if (c.Compare(key->n) >= 0) return kErrInputNotBelowModulus;
  if (m.ModExp(c, key->e, key->n) != 0) return kErrPublicOp;
  return StoreOutput(m, out, len, outLen);
}

Status RsaPrivate(const CRSA* key, const uint8_t* in, size_t len, uint8_t* out, size_t* outLen) {
  if (key == nullptr || in == nullptr || out == nullptr) return kErrNullArgument;
  CBigNumber c, m;
  if (key->hasCrt) {
    uint32_t modulusBytes = key->ModulusBytes();
    if (key->n.IsZero()) {
      CBigNumber pq;
      if (pq.Mul(key->p, key->q) != 0) return kErrNoMemory;
      modulusBytes = (pq.BitLength() + 7) / 8;
    }
    Status status = LoadInput(c, in, len, modulusBytes);
    if (status != kOk) return status;
    if (!key->n.IsZero() && c.Compare(key->n) >= 0) return kErrInputNotBelowModulus;
    if (CrtExponentiate(*key, c, m) != kOk) return kErrGeneric;
    return StoreOutput(m, out, len, outLen);
  }
  if (!key->hasPrivate) return kErrMissingComponent;
  Status status = LoadInput(c, in, len, key->ModulusBytes());
  if (status != kOk) return status;
  if (c.Compare(key->n) >= 0) return kErrInputNotBelowModulus;
  if (m.ModExp(c, key->d, key->n) != 0) return kErrPrivateOp;
  return StoreOutput(m, out, len, outLen);
}

}  // namespace nivra::crypto
