// DES block function and key schedule (FIPS 46-3).
//
// Speed comes from three classic arrangements:
//  - the S-boxes and the P permutation are merged into eight tables of 64 words, built at compile
//    time from the standard's tables below;
//  - both halves are kept rotated right by 3 bits for the whole computation, so that the eight
//    6-bit inputs of the S-boxes sit at the bottom of the four bytes of either the half itself
//    (S1, S3, S5, S7) or the half rotated left by 4 (S2, S4, S6, S8); round keys are stored in the
//    same arrangement, and the expansion E costs one rotation;
//  - the initial and final permutations are done by five masked bit swaps each, once per block
//    even for triple DES (the final permutation of one stage and the initial permutation of the
//    next cancel).
#include <array>

#include "crypto/des.h"

namespace nivra::crypto {
namespace {

// ---- Tables of the standard (bit positions are 1-based, bit 1 is the most significant) ----

constexpr uint8_t kSBoxes[8][4][16] = {
    {{14, 4, 13, 1, 2, 15, 11, 8, 3, 10, 6, 12, 5, 9, 0, 7},
     {0, 15, 7, 4, 14, 2, 13, 1, 10, 6, 12, 11, 9, 5, 3, 8},
     {4, 1, 14, 8, 13, 6, 2, 11, 15, 12, 9, 7, 3, 10, 5, 0},
     {15, 12, 8, 2, 4, 9, 1, 7, 5, 11, 3, 14, 10, 0, 6, 13}},
    {{15, 1, 8, 14, 6, 11, 3, 4, 9, 7, 2, 13, 12, 0, 5, 10},
     {3, 13, 4, 7, 15, 2, 8, 14, 12, 0, 1, 10, 6, 9, 11, 5},
     {0, 14, 7, 11, 10, 4, 13, 1, 5, 8, 12, 6, 9, 3, 2, 15},
     {13, 8, 10, 1, 3, 15, 4, 2, 11, 6, 7, 12, 0, 5, 14, 9}},
    {{10, 0, 9, 14, 6, 3, 15, 5, 1, 13, 12, 7, 11, 4, 2, 8},
     {13, 7, 0, 9, 3, 4, 6, 10, 2, 8, 5, 14, 12, 11, 15, 1},
     {13, 6, 4, 9, 8, 15, 3, 0, 11, 1, 2, 12, 5, 10, 14, 7},
     {1, 10, 13, 0, 6, 9, 8, 7, 4, 15, 14, 3, 11, 5, 2, 12}},
    {{7, 13, 14, 3, 0, 6, 9, 10, 1, 2, 8, 5, 11, 12, 4, 15},
     {13, 8, 11, 5, 6, 15, 0, 3, 4, 7, 2, 12, 1, 10, 14, 9},
     {10, 6, 9, 0, 12, 11, 7, 13, 15, 1, 3, 14, 5, 2, 8, 4},
     {3, 15, 0, 6, 10, 1, 13, 8, 9, 4, 5, 11, 12, 7, 2, 14}},
    {{2, 12, 4, 1, 7, 10, 11, 6, 8, 5, 3, 15, 13, 0, 14, 9},
     {14, 11, 2, 12, 4, 7, 13, 1, 5, 0, 15, 10, 3, 9, 8, 6},
     {4, 2, 1, 11, 10, 13, 7, 8, 15, 9, 12, 5, 6, 3, 0, 14},
     {11, 8, 12, 7, 1, 14, 2, 13, 6, 15, 0, 9, 10, 4, 5, 3}},
    {{12, 1, 10, 15, 9, 2, 6, 8, 0, 13, 3, 4, 14, 7, 5, 11},
     {10, 15, 4, 2, 7, 12, 9, 5, 6, 1, 13, 14, 0, 11, 3, 8},
     {9, 14, 15, 5, 2, 8, 12, 3, 7, 0, 4, 10, 1, 13, 11, 6},
     {4, 3, 2, 12, 9, 5, 15, 10, 11, 14, 1, 7, 6, 0, 8, 13}},
    {{4, 11, 2, 14, 15, 0, 8, 13, 3, 12, 9, 7, 5, 10, 6, 1},
     {13, 0, 11, 7, 4, 9, 1, 10, 14, 3, 5, 12, 2, 15, 8, 6},
     {1, 4, 11, 13, 12, 3, 7, 14, 10, 15, 6, 8, 0, 5, 9, 2},
     {6, 11, 13, 8, 1, 4, 10, 7, 9, 5, 0, 15, 14, 2, 3, 12}},
    {{13, 2, 8, 4, 6, 15, 11, 1, 10, 9, 3, 14, 5, 0, 12, 7},
     {1, 15, 13, 8, 10, 3, 7, 4, 12, 5, 6, 11, 0, 14, 9, 2},
     {7, 11, 4, 1, 9, 12, 14, 2, 0, 6, 10, 13, 15, 3, 5, 8},
     {2, 1, 14, 7, 4, 10, 8, 13, 15, 12, 9, 0, 3, 5, 6, 11}},
};

constexpr uint8_t kP[32] = {16, 7, 20, 21, 29, 12, 28, 17, 1,  15, 23, 26, 5,  18, 31, 10,
                            2,  8, 24, 14, 32, 27, 3,  9,  19, 13, 30, 6,  22, 11, 4,  25};

constexpr uint8_t kPc1[56] = {57, 49, 41, 33, 25, 17, 9,  1,  58, 50, 42, 34, 26, 18,
                              10, 2,  59, 51, 43, 35, 27, 19, 11, 3,  60, 52, 44, 36,
                              63, 55, 47, 39, 31, 23, 15, 7,  62, 54, 46, 38, 30, 22,
                              14, 6,  61, 53, 45, 37, 29, 21, 13, 5,  28, 20, 12, 4};

constexpr uint8_t kPc2[48] = {14, 17, 11, 24, 1,  5,  3,  28, 15, 6,  21, 10,
                              23, 19, 12, 4,  26, 8,  16, 7,  27, 20, 13, 2,
                              41, 52, 31, 37, 47, 55, 30, 40, 51, 45, 33, 48,
                              44, 49, 39, 56, 34, 53, 46, 42, 50, 36, 29, 32};

constexpr uint8_t kRoundShifts[16] = {1, 1, 2, 2, 2, 2, 2, 2, 1, 2, 2, 2, 2, 2, 2, 1};

// Every row of every S-box is a permutation of 0..15: a cheap guard against a mistyped entry.
constexpr bool SBoxRowsArePermutations() {
  for (const auto& box : kSBoxes) {
    for (const auto& row : box) {
      uint32_t seen = 0;
      for (uint8_t v : row) seen |= 1u << v;
      if (seen != 0xFFFFu) return false;
    }
  }
  return true;
}
static_assert(SBoxRowsArePermutations(), "S-box table damaged");

constexpr uint32_t Rotr(uint32_t x, unsigned n) { return (x >> n) | (x << (32 - n)); }
constexpr uint32_t Rotl(uint32_t x, unsigned n) { return (x << n) | (x >> (32 - n)); }

// Half-blocks are held rotated right by this many bits between the two permutations.
constexpr unsigned kHalfRotation = 3;

// Entry v of table i: S-box i applied to the 6-bit input v (first bit most significant), placed
// at its nibble of the 32-bit output, permuted by P, and rotated like the half-blocks.
constexpr std::array<std::array<uint32_t, 64>, 8> BuildSpTables() {
  std::array<std::array<uint32_t, 64>, 8> sp{};
  for (unsigned box = 0; box < 8; ++box) {
    for (unsigned v = 0; v < 64; ++v) {
      unsigned row = ((v >> 4) & 2) | (v & 1);
      unsigned col = (v >> 1) & 0xF;
      uint32_t s = static_cast<uint32_t>(kSBoxes[box][row][col]) << (28 - 4 * box);
      uint32_t p = 0;
      for (unsigned j = 0; j < 32; ++j) p |= ((s >> (32 - kP[j])) & 1u) << (31 - j);
      sp[box][v] = Rotr(p, kHalfRotation);
    }
  }
  return sp;
}
constexpr std::array<std::array<uint32_t, 64>, 8> kSp = BuildSpTables();

// ---- Initial and final permutations ----

// Exchanges the bits of a selected by (m << n) with the bits of b selected by m.
inline void SwapBits(uint32_t& a, uint32_t& b, unsigned n, uint32_t m) {
  uint32_t t = ((a >> n) ^ b) & m;
  b ^= t;
  a ^= t << n;
}

inline void InitialPermutation(uint32_t& l, uint32_t& r) {
  SwapBits(l, r, 4, 0x0F0F0F0Fu);
  SwapBits(l, r, 16, 0x0000FFFFu);
  SwapBits(r, l, 2, 0x33333333u);
  SwapBits(r, l, 8, 0x00FF00FFu);
  SwapBits(l, r, 1, 0x55555555u);
}

// Inverse of InitialPermutation: the same swaps in reverse order.
inline void FinalPermutation(uint32_t& l, uint32_t& r) {
  SwapBits(l, r, 1, 0x55555555u);
  SwapBits(r, l, 8, 0x00FF00FFu);
  SwapBits(r, l, 2, 0x33333333u);
  SwapBits(l, r, 16, 0x0000FFFFu);
  SwapBits(l, r, 4, 0x0F0F0F0Fu);
}

// ---- Rounds ----

inline uint32_t RoundFunction(uint32_t half, uint32_t k0, uint32_t k1) {
  uint32_t u = half ^ k0;
  uint32_t t = Rotl(half, 4) ^ k1;
  return kSp[0][(u >> 24) & 63] ^ kSp[2][(u >> 16) & 63] ^ kSp[4][(u >> 8) & 63] ^
         kSp[6][u & 63] ^ kSp[1][(t >> 24) & 63] ^ kSp[3][(t >> 16) & 63] ^
         kSp[5][(t >> 8) & 63] ^ kSp[7][t & 63];
}

// Sixteen rounds on rotated halves, without the final exchange of halves: afterwards l holds
// L16 and r holds R16, so the stage's output block is (r, l). Decryption takes the round keys
// in reverse order. Four rounds per iteration keep the loop overhead out of the way.
template <bool Decrypt>
inline void SixteenRounds(uint32_t& l, uint32_t& r, const DesSubkeys& k) {
  const uint32_t* w = k.words;
  auto f = [w](uint32_t half, int round) {
    const int i = 2 * (Decrypt ? 15 - round : round);
    return RoundFunction(half, w[i], w[i + 1]);
  };
  for (int round = 0; round < 16; round += 4) {
    l ^= f(r, round);
    r ^= f(l, round + 1);
    l ^= f(r, round + 2);
    r ^= f(l, round + 3);
  }
}

inline void SixteenRounds(uint32_t& l, uint32_t& r, const DesSubkeys& k, bool decrypt) {
  if (decrypt) {
    SixteenRounds<true>(l, r, k);
  } else {
    SixteenRounds<false>(l, r, k);
  }
}

inline uint32_t LoadBe32(const uint8_t* p) {
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

inline void StoreBe32(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v >> 24);
  p[1] = static_cast<uint8_t>(v >> 16);
  p[2] = static_cast<uint8_t>(v >> 8);
  p[3] = static_cast<uint8_t>(v);
}

struct Stage {
  const DesSubkeys* key;
  bool decrypt;
};

// Runs one to three DES stages on a block. Between stages the final permutation of one and the
// initial permutation of the next cancel, and the halves simply change roles.
void RunStages(const Stage* stages, int count, const uint8_t* in, uint8_t* out) {
  uint32_t l = LoadBe32(in);
  uint32_t r = LoadBe32(in + 4);
  InitialPermutation(l, r);
  l = Rotr(l, kHalfRotation);
  r = Rotr(r, kHalfRotation);
  for (int s = 0; s < count; ++s) {
    if (s % 2 == 0) {
      SixteenRounds(l, r, *stages[s].key, stages[s].decrypt);
    } else {
      SixteenRounds(r, l, *stages[s].key, stages[s].decrypt);
    }
  }
  uint32_t left = Rotl(count % 2 ? r : l, kHalfRotation);
  uint32_t right = Rotl(count % 2 ? l : r, kHalfRotation);
  FinalPermutation(left, right);
  StoreBe32(out, left);
  StoreBe32(out + 4, right);
}

Status CryptBlock(const DesKeySchedule* schedule, const uint8_t* in, uint8_t* out,
                  uint32_t selector, bool decrypt) {
  if (schedule == nullptr) return kErrInvalidHandle;
  const uint32_t count = schedule->keyCount;
  if (count < 1 || count > kDesMaxKeys) return kErrInvalidHandle;
  if (in == nullptr || out == nullptr) return kErrNullData;
  const DesSubkeys* k = schedule->keys;
  Stage stages[3];
  int n = 0;
  switch (selector) {
    case kDesFullCipher:
      if (count == 1) {
        stages[n++] = {&k[0], decrypt};
      } else {
        // Two-key TDEA uses K1 again as its third key.
        const DesSubkeys* third = count == 3 ? &k[2] : &k[0];
        stages[n++] = {decrypt ? third : &k[0], decrypt};
        stages[n++] = {&k[1], !decrypt};
        stages[n++] = {decrypt ? &k[0] : third, decrypt};
      }
      break;
    case kDesKey1:
    case kDesKey2:
    case kDesKey3:
      if (selector > count) return kErrInvalidHandle;
      stages[n++] = {&k[selector - 1], decrypt};
      break;
    default:
      return kErrNullData;
  }
  RunStages(stages, n, in, out);
  return kOk;
}

}  // namespace

void DesExpandKey(const uint8_t key[kDesKeySize], DesSubkeys* out) {
  uint64_t k = 0;
  for (size_t i = 0; i < kDesKeySize; ++i) k = (k << 8) | key[i];
  auto keyBit = [k](unsigned pos) { return static_cast<uint32_t>(k >> (64 - pos)) & 1u; };

  uint32_t c = 0, d = 0;
  for (unsigned i = 0; i < 28; ++i) c = (c << 1) | keyBit(kPc1[i]);
  for (unsigned i = 28; i < 56; ++i) d = (d << 1) | keyBit(kPc1[i]);

  constexpr uint32_t kMask28 = 0x0FFFFFFFu;
  for (unsigned round = 0; round < 16; ++round) {
    unsigned s = kRoundShifts[round];
    c = ((c << s) | (c >> (28 - s))) & kMask28;
    d = ((d << s) | (d >> (28 - s))) & kMask28;
    uint64_t cd = (uint64_t{c} << 28) | d;
    uint32_t piece[8] = {};
    for (unsigned j = 0; j < 48; ++j) {
      uint32_t bit = static_cast<uint32_t>(cd >> (56 - kPc2[j])) & 1u;
      piece[j / 6] = (piece[j / 6] << 1) | bit;
    }
    out->words[2 * round] = (piece[0] << 24) | (piece[2] << 16) | (piece[4] << 8) | piece[6];
    out->words[2 * round + 1] = (piece[1] << 24) | (piece[3] << 16) | (piece[5] << 8) | piece[7];
  }
}

Status DesEncryptBlock(const DesKeySchedule* schedule, const uint8_t* in, uint8_t* out,
                       uint32_t selector) {
  return CryptBlock(schedule, in, out, selector, false);
}

Status DesDecryptBlock(const DesKeySchedule* schedule, const uint8_t* in, uint8_t* out,
                       uint32_t selector) {
  return CryptBlock(schedule, in, out, selector, true);
}

}  // namespace nivra::crypto
