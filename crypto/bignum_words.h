// Word-array primitives under CBigNumber: raw (pointer, length) arrays of 32-bit words, least
// significant word first. Every 32 x 32 bit product is one uint64_t multiplication (the Montgomery
// products pair the words into wider limbs where the compiler has 128-bit products). None of these
// allocate; callers own every buffer and size it as each contract states. Unless a contract says
// otherwise, output arrays must not overlap input arrays.
#pragma once
#include <cstddef>
#include <cstdint>

namespace nivra::crypto {

// Number of significant words of a[0..n): n minus the high-order zero words.
size_t WordsTrim(const uint32_t* a, size_t n);

// Zero-fills r[0..n). Plain fill, for arithmetic scratch.
void WordsZero(uint32_t* r, size_t n);

// Copies a[0..n) to r[0..n); the arrays may be identical but must not partly overlap.
void WordsCopy(uint32_t* r, const uint32_t* a, size_t n);

// r[0..n) += w, the carry rippled upward; returns the carry out of the top word (0 or 1).
uint32_t WordsAddWord(uint32_t* r, size_t n, uint32_t w);

// r[0..n) -= w, the borrow rippled upward; returns the borrow out of the top word (0 or 1).
uint32_t WordsSubWord(uint32_t* r, size_t n, uint32_t w);

// r[0..n) += b[0..n); returns the carry (0 or 1). r may equal b.
uint32_t WordsAdd(uint32_t* r, const uint32_t* b, size_t n);

// r[0..n) -= b[0..n); returns the borrow (0 or 1). r may equal b.
uint32_t WordsSub(uint32_t* r, const uint32_t* b, size_t n);

// Compares a[0..n) with b[0..n) from the top word down: -1, 0 or 1.
int WordsCompare(const uint32_t* a, const uint32_t* b, size_t n);

// r[0..n] = a[0..n) * w: n + 1 words written. r may equal a (it is read below where it is written).
void WordsMulWord(uint32_t* r, const uint32_t* a, size_t n, uint32_t w);

// r[0..n) += a[0..n) * w; returns the word carried out of r[n-1].
uint32_t WordsMulAddWord(uint32_t* r, const uint32_t* a, size_t n, uint32_t w);

// r[0..n) -= a[0..n) * w; returns the word borrowed out of r[n-1].
uint32_t WordsMulSubWord(uint32_t* r, const uint32_t* a, size_t n, uint32_t w);

// r[0..n+m) = a[0..n) * b[0..m), schoolbook; r is zero-filled when n or m is 0.
void WordsMul(uint32_t* r, const uint32_t* a, size_t n, const uint32_t* b, size_t m);

// r[0..2n) = a[0..n)^2: each cross product once, doubled, plus the squares of the words.
void WordsSquare(uint32_t* r, const uint32_t* a, size_t n);

// r[0..n) = a[0..n) << bits (0 <= bits < 32); returns the bits shifted out of the top. r may equal a.
uint32_t WordsShiftLeft(uint32_t* r, const uint32_t* a, size_t n, unsigned bits);

// r[0..n) = a[0..n) >> bits (0 <= bits < 32); returns the bits shifted out at the bottom, in the
// low bits of the result. r may equal a.
uint32_t WordsShiftRight(uint32_t* r, const uint32_t* a, size_t n, unsigned bits);

// Divides hi:lo by d, which needs its top bit set and hi < d; *q receives the quotient word and
// the remainder is returned.
uint32_t DivTwoWords(uint32_t* q, uint32_t hi, uint32_t lo, uint32_t d);

// q[0..n) = a[0..n) / d for any non-zero d; returns the remainder. q may equal a; q may be null
// when only the remainder is wanted.
uint32_t WordsDivWord(uint32_t* q, const uint32_t* a, size_t n, uint32_t d);

// a[0..n) mod d for any non-zero d, without a quotient.
uint32_t WordsModWord(const uint32_t* a, size_t n, uint32_t d);

// Long division in place (Knuth's algorithm D). Needs an >= mn >= 1 and m[mn-1] != 0; a must have
// room for an + 1 words (a[an] is working space). On return a[0..mn) holds the remainder and
// a[mn..an] are zero; q[0..an-mn] receives the quotient when q is not null. m is shifted during
// the division and restored before return. q must not overlap a or m.
void WordsDiv(uint32_t* q, uint32_t* a, size_t an, uint32_t* m, size_t mn);

// -m0^(-1) mod 2^32 for odd m0, by Newton's iteration: the Montgomery constant of a modulus whose
// lowest word is m0.
uint32_t MontgomeryMinv(uint32_t m0);

// Montgomery reduction with R = 2^(32n): t[0..2n) holds a value below m*R; afterwards
// t[n..2n) = t * R^(-1) mod m, fully reduced (below m). t[0..n) is clobbered. m is odd, n words,
// m[n-1] != 0, minv = MontgomeryMinv(m[0]).
void WordsMontReduce(uint32_t* t, const uint32_t* m, size_t n, uint32_t minv);

// Scratch words that WordsMontMul and WordsMontSquare need for an n-word modulus: the whole
// product and the carry above it.
constexpr size_t MontScratchWords(size_t n) { return 2 * n + 4; }

// r = a * b * R^(-1) mod m: the product formed whole in scratch (MontScratchWords(n) words), then
// reduced. a, b < m, n words each. r may equal a or b.
void WordsMontMul(uint32_t* r, const uint32_t* a, const uint32_t* b, const uint32_t* m, size_t n,
                  uint32_t minv, uint32_t* scratch);

// r = a^2 * R^(-1) mod m like WordsMontMul, with each cross product of the square formed once and
// doubled. a < m, n words; scratch has MontScratchWords(n) words. r may equal a.
void WordsMontSquare(uint32_t* r, const uint32_t* a, const uint32_t* m, size_t n, uint32_t minv,
                     uint32_t* scratch);

}  // namespace nivra::crypto
