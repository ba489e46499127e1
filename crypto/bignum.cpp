// Storage of CBigNumber: allocation, growth, copying and the simple queries.
#include "crypto/bignum.h"

#include <new>

#include "crypto/bignum_words.h"
#include "crypto/wipe.h"

namespace nivra::crypto {

uint32_t* AllocWords(size_t n) {
  if (n == 0) return nullptr;
  return new (std::nothrow) uint32_t[n];
}

void FreeWords(uint32_t* block, size_t n) {
  if (block == nullptr) return;
  Wipe(block, n * sizeof(uint32_t));
  delete[] block;
}

CBigNumber::~CBigNumber() { Release(); }

void CBigNumber::Release() {
  FreeWords(words, capacity);
  words = nullptr;
  used = 0;
  capacity = 0;
}

int CBigNumber::Reserve(uint32_t n) {
  uint32_t cap = n + (n & 1u);
  if (cap < n) return -1;  // n was the largest odd word count
  if (cap == 0) {
    Release();
    return 0;
  }
  uint32_t* block = AllocWords(cap);
  if (block == nullptr) return -1;
  uint32_t keep = capacity < cap ? capacity : cap;
  WordsCopy(block, words, keep);
  Adopt(block, cap, used < keep ? used : keep);
  Trim();
  return 0;
}

void CBigNumber::Adopt(uint32_t* block, uint32_t cap, uint32_t n) {
  FreeWords(words, capacity);
  words = block;
  capacity = cap;
  used = n;
}

int CBigNumber::GrowZeroed(uint32_t n) {
  if (n > capacity && Reserve(n) != 0) return -1;
  if (n > used) WordsZero(words + used, n - used);
  return 0;
}

int CBigNumber::CopyFrom(const CBigNumber& a) {
  if (&a == this) {
    Trim();
    return 0;
  }
  if (a.used > capacity && Reserve(a.used) != 0) return -1;
  WordsCopy(words, a.words, a.used);
  used = WordsTrim(words, a.used);
  return 0;
}

int CBigNumber::SetWord(uint32_t w) {
  if (w == 0) {
    used = 0;
    return 0;
  }
  if (capacity < 1 && Reserve(1) != 0) return -1;
  words[0] = w;
  used = 1;
  return 0;
}

void CBigNumber::Trim() { used = static_cast<uint32_t>(WordsTrim(words, used)); }

void CBigNumber::Swap(CBigNumber& b) {
  uint32_t* w = words;
  uint32_t u = used;
  uint32_t c = capacity;
  words = b.words;
  used = b.used;
  capacity = b.capacity;
  b.words = w;
  b.used = u;
  b.capacity = c;
}

bool CBigNumber::IsZero() const { return WordsTrim(words, used) == 0; }

bool CBigNumber::IsWord(uint32_t w) const {
  size_t n = WordsTrim(words, used);
  if (w == 0) return n == 0;
  return n == 1 && words[0] == w;
}

uint32_t CBigNumber::BitLength() const {
  size_t n = WordsTrim(words, used);
  if (n == 0) return 0;
  uint32_t top = words[n - 1];
  uint32_t bits = 1;
  for (unsigned step = 16; step > 0; step >>= 1) {
    if ((top >> step) != 0) {
      top >>= step;
      bits += step;
    }
  }
  return static_cast<uint32_t>((n - 1) * 32) + bits;
}

bool CBigNumber::Bit(uint32_t i) const {
  uint32_t w = i / 32;
  return w < used && ((words[w] >> (i % 32)) & 1u) != 0;
}

}  // namespace nivra::crypto
