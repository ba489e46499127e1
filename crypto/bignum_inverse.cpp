// Modular inverse by the extended Euclidean algorithm.
#include "crypto/bignum.h"

namespace nivra::crypto {

namespace {

// t = (t0 - q * t1) mod m for t0, t1 < m; product is scratch.
int CofactorStep(CBigNumber& t, const CBigNumber& t0, const CBigNumber& q, const CBigNumber& t1,
                 const CBigNumber& m, CBigNumber& product) {
  if (product.Mul(q, t1) != 0 || product.Mod(product, m) != 0) return -1;
  if (t.CopyFrom(t0) != 0) return -1;
  int larger = t.Sub(product);  // |t0 - q*t1 mod m|
  if (larger < 0) return -1;
  if (larger == 1 && !t.IsZero()) {
    // t0 - x was negative: its residue is m - (x - t0).
    if (product.CopyFrom(m) != 0 || product.Sub(t) < 0) return -1;
    t.Swap(product);
  }
  return 0;
}

}  // namespace

int CBigNumber::ModInverse(const CBigNumber& a, const CBigNumber& m) {
  if (m.IsZero()) return 1;
  if (m.IsWord(1)) {  // every value is 0 modulo 1, and 0 is its own inverse there
    used = 0;
    return 0;
  }
  // Remainders r0 > r1 and their cofactors modulo m: r_i = t_i * a (mod m).
  CBigNumber r0, r1, t0, t1, q, r2, t2, product;
  if (r0.CopyFrom(m) != 0 || t0.SetWord(0) != 0 || t1.SetWord(1) != 0) return -1;
  if (r1.Mod(a, m) != 0) return -1;
  while (!r1.IsZero() && !r1.IsWord(1)) {
    if (r2.DivMod(q, r0, r1) != 0) return -1;
    if (CofactorStep(t2, t0, q, t1, m, product) != 0) return -1;
    r0.Swap(r1);
    r1.Swap(r2);
    t0.Swap(t1);
    t1.Swap(t2);
  }
  if (!r1.IsWord(1)) return 1;
  return CopyFrom(t1);
}

}  // namespace nivra::crypto
