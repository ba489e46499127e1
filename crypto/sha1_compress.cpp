// SHA-1 compression (FIPS 180-4, section 6.1.2) in portable C++.
//
// The 80 steps are fully unrolled. Instead of shifting a..e after each step, consecutive steps
// rename the working variables, so a step is a handful of register operations. The message
// schedule lives in a 16-word ring: step t (t >= 16) replaces W[t-16] by W[t], computed just
// before the step uses it, so every schedule word is written once and read from the cache line
// it was just stored to.
#include "crypto/sha1_compress.h"

namespace nivra::crypto {
namespace {

constexpr uint32_t kK0 = 0x5A827999;  // steps 0..19
constexpr uint32_t kK1 = 0x6ED9EBA1;  // steps 20..39
constexpr uint32_t kK2 = 0x8F1BBCDC;  // steps 40..59
constexpr uint32_t kK3 = 0xCA62C1D6;  // steps 60..79

inline uint32_t Rotl(uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }

inline uint32_t LoadBigEndian32(const uint8_t* p) {
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | uint32_t{p[3]};
}

// The three step functions. Maj is written as a sum of disjoint bit sets, so its two parts
// need not be combined before they are added.
inline uint32_t Ch(uint32_t b, uint32_t c, uint32_t d) { return d ^ (b & (c ^ d)); }
inline uint32_t Parity(uint32_t b, uint32_t c, uint32_t d) { return b ^ c ^ d; }
inline uint32_t Maj(uint32_t b, uint32_t c, uint32_t d) { return (b & c) + (d & (b ^ c)); }

// W[t] for t in 0..15: the block's words, stored into the ring.
inline uint32_t LoadWord(uint32_t w[16], const uint8_t* block, int t) {
  return w[t] = LoadBigEndian32(block + 4 * t);
}

// W[t] for t in 16..79, replacing W[t-16] in the ring.
inline uint32_t ExpandWord(uint32_t w[16], int t) {
  return w[t & 15] = Rotl(w[(t - 3) & 15] ^ w[(t - 8) & 15] ^ w[(t - 14) & 15] ^ w[t & 15], 1);
}

// One step: e takes the new a, b is rotated; the caller renames the variables for the next step.
template <uint32_t (*F)(uint32_t, uint32_t, uint32_t), uint32_t K>
inline void Step(uint32_t a, uint32_t& b, uint32_t c, uint32_t d, uint32_t& e, uint32_t word) {
  e += Rotl(a, 5) + F(b, c, d) + K + word;
  b = Rotl(b, 30);
}

}  // namespace

// Five steps from step t with schedule words given by `word` (an expression of t and its
// offsets); after five renamings the variables are back in their places.
#define NIVRA_SHA1_FIVE(F, K, word, t)            \
  Step<F, K>(a, b, c, d, e, word((t) + 0));       \
  Step<F, K>(e, a, b, c, d, word((t) + 1));       \
  Step<F, K>(d, e, a, b, c, word((t) + 2));       \
  Step<F, K>(c, d, e, a, b, word((t) + 3));       \
  Step<F, K>(b, c, d, e, a, word((t) + 4))
#define NIVRA_SHA1_LOAD(t) LoadWord(w, block, t)
#define NIVRA_SHA1_EXPAND(t) ExpandWord(w, t)

void Sha1Compress(uint32_t h[5], const uint8_t* blocks, size_t blockCount) {
  uint32_t w[16];
  for (; blockCount != 0; --blockCount, blocks += 64) {
    const uint8_t* block = blocks;
    uint32_t a = h[0], b = h[1], c = h[2], d = h[3], e = h[4];
    NIVRA_SHA1_FIVE(Ch, kK0, NIVRA_SHA1_LOAD, 0);
    NIVRA_SHA1_FIVE(Ch, kK0, NIVRA_SHA1_LOAD, 5);
    NIVRA_SHA1_FIVE(Ch, kK0, NIVRA_SHA1_LOAD, 10);
    Step<Ch, kK0>(a, b, c, d, e, LoadWord(w, block, 15));
    Step<Ch, kK0>(e, a, b, c, d, ExpandWord(w, 16));
    Step<Ch, kK0>(d, e, a, b, c, ExpandWord(w, 17));
    Step<Ch, kK0>(c, d, e, a, b, ExpandWord(w, 18));
    Step<Ch, kK0>(b, c, d, e, a, ExpandWord(w, 19));
    NIVRA_SHA1_FIVE(Parity, kK1, NIVRA_SHA1_EXPAND, 20);
    NIVRA_SHA1_FIVE(Parity, kK1, NIVRA_SHA1_EXPAND, 25);
    NIVRA_SHA1_FIVE(Parity, kK1, NIVRA_SHA1_EXPAND, 30);
    NIVRA_SHA1_FIVE(Parity, kK1, NIVRA_SHA1_EXPAND, 35);
    NIVRA_SHA1_FIVE(Maj, kK2, NIVRA_SHA1_EXPAND, 40);
    NIVRA_SHA1_FIVE(Maj, kK2, NIVRA_SHA1_EXPAND, 45);
    NIVRA_SHA1_FIVE(Maj, kK2, NIVRA_SHA1_EXPAND, 50);
    NIVRA_SHA1_FIVE(Maj, kK2, NIVRA_SHA1_EXPAND, 55);
    NIVRA_SHA1_FIVE(Parity, kK3, NIVRA_SHA1_EXPAND, 60);
    NIVRA_SHA1_FIVE(Parity, kK3, NIVRA_SHA1_EXPAND, 65);
    NIVRA_SHA1_FIVE(Parity, kK3, NIVRA_SHA1_EXPAND, 70);
    NIVRA_SHA1_FIVE(Parity, kK3, NIVRA_SHA1_EXPAND, 75);
    h[0] += a;
    h[1] += b;
    h[2] += c;
    h[3] += d;
    h[4] += e;
  }
}

#undef NIVRA_SHA1_FIVE
#undef NIVRA_SHA1_LOAD
#undef NIVRA_SHA1_EXPAND

}  // namespace nivra::crypto
