// CRSA, the RSA key object, and the key operations that the key interface (rsa_interface.h)
// exposes. All operations return kOk or a negative code of crypto/errors.h and never throw.
// Values are big-endian byte strings at this boundary.
#pragma once
#include <cstddef>
#include <cstdint>

#include "crypto/bignum.h"
#include "crypto/errors.h"

namespace nivra::crypto {

// Component ids of export (RsaExportKey) and single-component loading (RsaSetKey).
constexpr uint32_t kRsaComponentD = 128;
constexpr uint32_t kRsaComponentN = 129;
constexpr uint32_t kRsaComponentE = 130;
constexpr uint32_t kRsaComponentP = 131;
constexpr uint32_t kRsaComponentQ = 132;
constexpr uint32_t kRsaComponentDP = 133;
constexpr uint32_t kRsaComponentDQ = 134;
constexpr uint32_t kRsaComponentQInv = 135;

// DER key forms of import and export.
constexpr uint32_t kRsaFormPublic = 1;        // SEQUENCE { n, e } (PKCS#1 RSAPublicKey)
constexpr uint32_t kRsaFormPrivate = 2;       // SEQUENCE { version, n, e, d, p, q, dP, dQ, qInv }
constexpr uint32_t kRsaFormShortPrivate = 3;  // SEQUENCE { n, e, d }

// Key generation gives up after this many failed attempts (kErrKeyGenFailed).
constexpr int kRsaKeyGenAttempts = 11;

class CRSA {
 public:
  CBigNumber n;     // modulus
  CBigNumber e;     // public exponent
  CBigNumber d;     // private exponent
  CBigNumber p;     // first prime (the larger one after generation or completion)
  CBigNumber q;     // second prime
  CBigNumber dP;    // d mod (p - 1)
  CBigNumber dQ;    // d mod (q - 1)
  CBigNumber qInv;  // q^(-1) mod p
  uint8_t hasCrt = 0;      // p, q, dP, dQ and qInv are present
  uint8_t hasPrivate = 0;  // n and d are present
  uint8_t hasPublic = 0;   // n and e are present

  CRSA() = default;
  virtual ~CRSA() = default;  // each component wipes its words
  CRSA(const CRSA&) = delete;
  CRSA& operator=(const CRSA&) = delete;

  // Copies all eight components and the three flags. kErrNoMemory on allocation failure.
  Status CopyFrom(const CRSA& other);
  // Frees all eight components and lowers the three flags.
  void Clear();
  // The component with the given id (kRsaComponentD ... kRsaComponentQInv), or null.
  CBigNumber* Component(uint32_t id);
  const CBigNumber* Component(uint32_t id) const;
  // Modulus length in bytes: (bits of n + 7) / 8.
  uint32_t ModulusBytes() const { return (n.BitLength() + 7) / 8; }
  // Raises (never lowers) each flag whose components are all non-zero.
  void RaiseFlags();
};

// --- key lifecycle (rsa_key.cpp) ------------------------------------------------------------

// *out = a new key with no components. kErrNullArgument, kErrNoMemory.
Status RsaCreateKey(CRSA** out);
// Destroys a key (null accepted). Returns kOk.
Status RsaDestroyKey(CRSA* key);
// *out = a copy of key. kErrNullArgument for a null key or out, kErrNoMemory.
Status RsaDuplicateKey(const CRSA* key, CRSA** out);
// what 1-3: parses that DER form into key (cleared first; a failure leaves it cleared; errors as
// RsaParseDer). what 128-135: loads one component from big-endian bytes with FromBytes at offset
// 0, which keeps any higher words of a longer value already held (kErrNoMemory when that fails).
// Afterwards the flags are raised as RaiseFlags does. Other values: kErrUnknownForm.
// kErrNullArgument for a null key, or null data with len > 0.
Status RsaSetKey(CRSA* key, uint32_t what, const uint8_t* data, size_t len);
// *bits = modulus bit length; when n is zero it is first computed as p * q (kErrNoMemory when
// that fails). kErrNullArgument on null arguments.
Status RsaKeyBits(CRSA* key, uint32_t* bits);

// --- generation and completion (rsa_keygen.cpp) -----------------------------------------------

// *out = a new key of exactly `bits` bits with public exponent e: p of (bits + 1) / 2 and q of
// bits / 2 random bits, advanced to primes p, q != 1 (mod e), q redrawn until |q - p| has at
// least bits / 2 - 5 bits, then completed. Up to kRsaKeyGenAttempts attempts; then
// kErrKeyGenFailed and nothing is returned. kErrNullArgument, kErrNoMemory.
Status RsaGenerateKey(CRSA** out, uint32_t bits, uint32_t e);
// From p, q and e (each non-zero, else kErrMissingComponent) computes n, d, dP, dQ and qInv,
// swapping p and q first when p < q, and raises all three flags; *bits = modulus bit length
// (bits may be null). kErrGeneric when a needed inverse does not exist or an operation fails.
Status RsaCompleteKey(CRSA* key, uint32_t* bits);
// The completion itself, for a key whose p, q and e are set: kOk or kErrGeneric.
Status RsaCompleteComponents(CRSA& key);

// --- raw operations (rsa_raw.cpp) -------------------------------------------------------------

// out = in^e mod n. Needs hasPublic (kErrMissingComponent); len must be the modulus length in
// bytes (kErrInputLength); in must be below n (kErrInputNotBelowModulus); kErrPublicOp when the
// exponentiation fails. out receives exactly len bytes, right-aligned; *outLen = len when outLen
// is not null. in and out may be the same buffer. kErrNullArgument for null key, in or out.
Status RsaPublic(const CRSA* key, const uint8_t* in, size_t len, uint8_t* out, size_t* outLen);
// out = in^d mod n: by the CRT when hasCrt (kErrGeneric when an exponentiation fails; the check
// against n is skipped when n is absent, and the length is then that of p * q), else with d when
// hasPrivate (kErrPrivateOp when it fails), else kErrMissingComponent. Length, range and output
// rules as RsaPublic.
Status RsaPrivate(const CRSA* key, const uint8_t* in, size_t len, uint8_t* out, size_t* outLen);

// --- DER forms (rsa_der.cpp) ------------------------------------------------------------------

// Clears key and parses DER form 1, 2 or 3 into it (kErrUnknownForm otherwise). The outer
// SEQUENCE (tag 0x30, short or 1-4 octet long length) must end exactly at the end of the input;
// form 2 skips its version element whatever its tag; each INTEGER needs tag 0x02 and must end
// within the input; leading zero bytes of its content are skipped. Any mismatch is
// kErrMalformedDer and leaves key cleared; kErrNoMemory when a component cannot be stored.
// Sets hasPublic (form 1), all flags (form 2) or hasPrivate and hasPublic (form 3). No
// consistency check of the values is made.
Status RsaParseDer(CRSA& key, uint32_t form, const uint8_t* der, size_t len);
// *out = a new key parsed from DER form 1-3 (see RsaParseDer); *bits = modulus bit length (bits
// may be null). On failure no key is returned. kErrNullArgument for null out or der.
Status RsaImportKey(CRSA** out, uint32_t* bits, uint32_t form, const uint8_t* der, size_t len);
// what 1-3: that DER form (form 1 needs hasPublic and non-zero n, e; form 2 needs hasCrt and all
// eight components non-zero, version 0 first; form 3 needs hasPrivate, hasPublic and non-zero n,
// e, d; otherwise kErrMissingComponent). what 128-135: the component as unsigned big-endian bytes
// of (bits + 7) / 8 bytes; d needs hasPrivate, n hasPrivate or hasPublic, e hasPublic, the CRT
// components hasCrt (kErrMissingComponent). Other values kErrUnknownForm.
// *len is the capacity in and the length needed or written out: a null out only reports it
// (kOk); a smaller capacity reports it with kErrBufferTooSmall and writes nothing.
// kErrNullArgument for a null key or len.
Status RsaExportKey(const CRSA* key, uint32_t what, uint8_t* out, size_t* len);

}  // namespace nivra::crypto
