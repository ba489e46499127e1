// Limbs of the Montgomery arithmetic: two 32-bit words with 128-bit products where the compiler
// has them (a quarter as many multiplications as word by word), otherwise one word with 64-bit
// products. The arrays stay 32-bit words either way; a limb is read and written as its words.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace nivra::crypto::limbs {

#if defined(__SIZEOF_INT128__)
using Limb = uint64_t;
using Wide = unsigned __int128;
constexpr size_t kLimbWords = 2;
inline Limb LoadLimb(const uint32_t* p) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  Limb v;
  std::memcpy(&v, p, sizeof v);  // the two words in memory order are the limb
  return v;
#else
  return p[0] | static_cast<Limb>(p[1]) << 32;
#endif
}
inline void StoreLimb(uint32_t* p, Limb v) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  std::memcpy(p, &v, sizeof v);
#else
  p[0] = static_cast<uint32_t>(v);
  p[1] = static_cast<uint32_t>(v >> 32);
#endif
}
#else
using Limb = uint32_t;
using Wide = uint64_t;
constexpr size_t kLimbWords = 1;
inline Limb LoadLimb(const uint32_t* p) { return *p; }
inline void StoreLimb(uint32_t* p, Limb v) { *p = v; }
#endif
constexpr unsigned kLimbBits = 32 * kLimbWords;

inline Limb Low(Wide v) { return static_cast<Limb>(v); }
inline Limb High(Wide v) { return static_cast<Limb>(v >> kLimbBits); }

inline Limb LimbMinv(uint32_t minv, Limb m0) {
  // -m^(-1) mod 2^kLimbBits from the word constant: one more Newton step when limbs are wider.
  Limb inverse = static_cast<Limb>(0u - minv);
  inverse *= 2 - m0 * inverse;
  return 0 - inverse;
}

inline Limb LimbAt(const uint32_t* w, size_t i) { return LoadLimb(w + kLimbWords * i); }

// r = a * b * R^(-1) and r = a^2 * R^(-1) mod m, R = 2^(32n), for an n that is not a whole number
// of limbs (odd n with two-word limbs): the product formed whole in scratch, then reduced row by
// row, the last row removing one word. Contracts as WordsMontMul and WordsMontSquare.
void MontMulHalfTop(uint32_t* r, const uint32_t* a, const uint32_t* b, const uint32_t* m, size_t n,
                    uint32_t minv, uint32_t* scratch);
void MontSquareHalfTop(uint32_t* r, const uint32_t* a, const uint32_t* m, size_t n, uint32_t minv,
                       uint32_t* scratch);

}  // namespace nivra::crypto::limbs
