#include "crypto/bignum_words.h"

#include <cstring>

namespace nivra::crypto {

namespace {
inline uint64_t Wide(uint32_t a, uint32_t b) { return static_cast<uint64_t>(a) * b; }
inline uint32_t Lo(uint64_t v) { return static_cast<uint32_t>(v); }
inline uint32_t Hi(uint64_t v) { return static_cast<uint32_t>(v >> 32); }
}  // namespace

size_t WordsTrim(const uint32_t* a, size_t n) {
  while (n > 0 && a[n - 1] == 0) --n;
  return n;
}

void WordsZero(uint32_t* r, size_t n) {
  if (n > 0) std::memset(r, 0, n * sizeof(uint32_t));
}

void WordsCopy(uint32_t* r, const uint32_t* a, size_t n) {
  if (n > 0 && r != a) std::memmove(r, a, n * sizeof(uint32_t));
}

uint32_t WordsAddWord(uint32_t* r, size_t n, uint32_t w) {
  for (size_t i = 0; i < n && w != 0; ++i) {
    uint32_t s = r[i] + w;
    w = s < w ? 1 : 0;
    r[i] = s;
  }
  return w;
}

uint32_t WordsSubWord(uint32_t* r, size_t n, uint32_t w) {
  for (size_t i = 0; i < n && w != 0; ++i) {
    uint32_t before = r[i];
    r[i] = before - w;
    w = before < w ? 1 : 0;
  }
  return w;
}

uint32_t WordsAdd(uint32_t* r, const uint32_t* b, size_t n) {
  uint64_t carry = 0;
  for (size_t i = 0; i < n; ++i) {
    carry += static_cast<uint64_t>(r[i]) + b[i];
    r[i] = Lo(carry);
    carry >>= 32;
  }
  return Lo(carry);
}

uint32_t WordsSub(uint32_t* r, const uint32_t* b, size_t n) {
  uint32_t borrow = 0;
  for (size_t i = 0; i < n; ++i) {
    uint64_t d = static_cast<uint64_t>(r[i]) - b[i] - borrow;
    r[i] = Lo(d);
    borrow = Hi(d) & 1;
  }
  return borrow;
}

int WordsCompare(const uint32_t* a, const uint32_t* b, size_t n) {
  while (n-- > 0) {
    if (a[n] != b[n]) return a[n] > b[n] ? 1 : -1;
  }
  return 0;
}

void WordsMulWord(uint32_t* r, const uint32_t* a, size_t n, uint32_t w) {
  uint64_t carry = 0;
  for (size_t i = 0; i < n; ++i) {
    carry += Wide(a[i], w);
    r[i] = Lo(carry);
    carry >>= 32;
  }
  r[n] = Lo(carry);
}

uint32_t WordsMulAddWord(uint32_t* r, const uint32_t* a, size_t n, uint32_t w) {
  // r[i] + a[i]*w + carry < 2^64 for 32-bit words, so one 64-bit accumulator suffices.
  uint64_t carry = 0;
  for (size_t i = 0; i < n; ++i) {
    carry += Wide(a[i], w) + r[i];
    r[i] = Lo(carry);
    carry >>= 32;
  }
  return Lo(carry);
}

uint32_t WordsMulSubWord(uint32_t* r, const uint32_t* a, size_t n, uint32_t w) {
  uint32_t borrow = 0;
  for (size_t i = 0; i < n; ++i) {
    uint64_t p = Wide(a[i], w) + borrow;  // below 2^64: (2^32-1)^2 + 2^32-1
    uint32_t low = Lo(p);
    uint32_t before = r[i];
    r[i] = before - low;
    borrow = Hi(p) + (before < low ? 1 : 0);
  }
  return borrow;
}

void WordsMul(uint32_t* r, const uint32_t* a, size_t n, const uint32_t* b, size_t m) {
  WordsZero(r, n + m);
  if (n == 0 || m == 0) return;
  for (size_t i = 0; i < n; ++i) r[i + m] = WordsMulAddWord(r + i, b, m, a[i]);
}

void WordsSquare(uint32_t* r, const uint32_t* a, size_t n) {
  if (n == 0) return;
  WordsZero(r, 2 * n);
  // Cross products a[i]*a[j], i < j: row i adds a[i]*a[i+1..n) at r[2i+1]; its carry lands in
  // r[i+n], which no earlier row has reached.
  for (size_t i = 0; i + 1 < n; ++i) {
    r[i + n] = WordsMulAddWord(r + 2 * i + 1, a + i + 1, n - i - 1, a[i]);
  }
  WordsShiftLeft(r, r, 2 * n, 1);
  uint64_t carry = 0;
  for (size_t i = 0; i < n; ++i) {
    uint64_t sq = Wide(a[i], a[i]);
    carry += static_cast<uint64_t>(r[2 * i]) + Lo(sq);
    r[2 * i] = Lo(carry);
    carry >>= 32;
    carry += static_cast<uint64_t>(r[2 * i + 1]) + Hi(sq);
    r[2 * i + 1] = Lo(carry);
    carry >>= 32;
  }
}

uint32_t WordsShiftLeft(uint32_t* r, const uint32_t* a, size_t n, unsigned bits) {
  if (n == 0) return 0;
  if (bits == 0) {
    WordsCopy(r, a, n);
    return 0;
  }
  uint32_t out = a[n - 1] >> (32 - bits);
  for (size_t i = n - 1; i > 0; --i) r[i] = (a[i] << bits) | (a[i - 1] >> (32 - bits));
  r[0] = a[0] << bits;
  return out;
}

uint32_t WordsShiftRight(uint32_t* r, const uint32_t* a, size_t n, unsigned bits) {
  if (n == 0) return 0;
  if (bits == 0) {
    WordsCopy(r, a, n);
    return 0;
  }
  uint32_t out = a[0] & ((1u << bits) - 1);
  for (size_t i = 0; i + 1 < n; ++i) r[i] = (a[i] >> bits) | (a[i + 1] << (32 - bits));
  r[n - 1] = a[n - 1] >> bits;
  return out;
}

}  // namespace nivra::crypto
