// CBigNumber: the non-negative multiprecision integer under the RSA engine. 32-bit words, least
// significant first; there is no sign (Sub reports which operand was larger instead).
//
// Result convention of the operations: 0 success; -1 allocation failure or invalid operand (an
// even or zero modulus); other values as stated. Whenever the destination is also an operand the
// operation works on a temporary block first, so a = a*a, a = a*b, b = a*b and a = a mod m are all
// allowed. On any negative result the destination's value is unspecified (callers discard it).
#pragma once
#include <cstddef>
#include <cstdint>

namespace nivra::crypto {

class CBigNumber {
 public:
  uint32_t* words = nullptr;  // magnitude, least significant word first; null while unallocated
  uint32_t used = 0;          // significant words; 0 is the value zero (normal form: no top zeros)
  uint32_t capacity = 0;      // words allocated, always even

  CBigNumber() = default;
  virtual ~CBigNumber();
  CBigNumber(const CBigNumber&) = delete;
  CBigNumber& operator=(const CBigNumber&) = delete;

  // --- storage -------------------------------------------------------------------------------
  // Makes room for n words: the capacity is rounded up to even, min(old, new) words are kept
  // (words beyond the new capacity are dropped, so `used` is cut down to match). Fresh words are
  // not cleared. 0 / -1; on -1 the number is unchanged.
  int Reserve(uint32_t n);
  // Frees the storage (wiped first); the value becomes zero.
  void Release();
  // Deep copy of a's value. 0 / -1.
  int CopyFrom(const CBigNumber& a);
  // Sets the value to the single word w (zero when w is 0). 0 / -1.
  int SetWord(uint32_t w);
  // Value zero, storage kept.
  void SetZero() { used = 0; }
  // Drops high-order zero words from `used`.
  void Trim();
  // Exchanges values and storage with b.
  void Swap(CBigNumber& b);

  bool IsZero() const;
  bool IsOdd() const { return used > 0 && (words[0] & 1u) != 0; }
  // True when the value is exactly the single word w.
  bool IsWord(uint32_t w) const;
  // Number of significant bits; 0 for zero.
  uint32_t BitLength() const;
  // Bit i of the value (0 beyond the top).
  bool Bit(uint32_t i) const;

  // --- bytes and DER -------------------------------------------------------------------------
  // Writes the big-endian string bytes[0..len) into byte positions offset .. offset+len-1 of
  // the value (counted from the least significant byte). The number grows, zero-filled, as
  // needed; every other byte of the previous value, higher words included, is kept. On a zero
  // number with offset 0 this is a plain load. 0 / -1.
  int FromBytes(const uint8_t* bytes, uint32_t offset, uint32_t len);
  // Stores (BitLength + 7) / 8 through needed when it is not null; when len is smaller returns
  // 0 and writes nothing; otherwise writes the value right-aligned in exactly len big-endian
  // bytes (leading zero bytes) and returns 1.
  int ToBytes(uint8_t* out, uint32_t len, uint32_t* needed) const;
  // Writes exactly len big-endian bytes, left-padded with zeros; the caller has checked that the
  // value fits (otherwise only its low len bytes are written).
  void ToBytesFixed(uint8_t* out, uint32_t len) const;
  // Total length of ToDerInteger's encoding.
  uint32_t DerIntegerLength() const;
  // Writes a DER INTEGER (tag 0x02, shortest DER length, (BitLength + 8) / 8 content bytes, so a
  // 0x00 byte leads whenever the top bit would be set; zero is the single content byte 0x00) and
  // returns its total length. With out null only the length is returned.
  uint32_t ToDerInteger(uint8_t* out) const;

  // --- arithmetic ----------------------------------------------------------------------------
  // this += b; grows by one word on a final carry. 0 / -1.
  int Add(const CBigNumber& b);
  // this = |this - b|; returns 1 when b was larger (the value is then b - this), else 0; -1 on
  // allocation failure.
  int Sub(const CBigNumber& b);
  // this += w. 0 / -1.
  int AddWord(uint32_t w);
  // this -= w; when w exceeds the value the result is w - this and 1 is returned, else 0.
  int SubWord(uint32_t w);
  // -1, 0 or 1 by magnitude (high zero words ignored).
  int Compare(const CBigNumber& b) const;
  // this = a * a. 0 / -1.
  int Square(const CBigNumber& a);
  // this = a * b (Square when a and b are the same object). 0 / -1.
  int Mul(const CBigNumber& a, const CBigNumber& b);
  // this = a mod m by long division (m non-zero); when a has fewer words than m, this = a.
  // 0 / -1 (also -1 for a zero m).
  int Mod(const CBigNumber& a, const CBigNumber& m);
  // quotient = a / m and this = a mod m (m non-zero). quotient must differ from this, a and m.
  // 0 / -1.
  int DivMod(CBigNumber& quotient, const CBigNumber& a, const CBigNumber& m);
  // this = this >> bits. 0 always (no allocation).
  int ShiftRight(uint32_t bits);
  // this = this << bits. 0 / -1.
  int ShiftLeft(uint32_t bits);
  // Divides by the largest power of two that divides the value and returns its exponent
  // (0 for zero).
  uint32_t RemoveTrailingZeros();

  // --- modular -------------------------------------------------------------------------------
  // this = base^exp mod m by Montgomery multiplication with a left-to-right sliding window; the
  // one-word base 2 takes a dedicated shift-based path. -1 when m is zero or even or on
  // allocation failure. Exponent 0 gives 1; exponent 1 gives the base copied unchanged (not
  // reduced: callers pass base < m).
  int ModExp(const CBigNumber& base, const CBigNumber& exp, const CBigNumber& m);
  // this = a^(-1) mod m (extended Euclid, cofactor kept modulo m): 0 success, 1 when no inverse
  // exists (gcd(a, m) != 1, a zero m included), -1 allocation failure.
  int ModInverse(const CBigNumber& a, const CBigNumber& m);

  // --- primes --------------------------------------------------------------------------------
  // this = random odd integer of exactly `bits` bits whose two highest bits are set (for bits 1,
  // the value 1; for 0, zero), drawn from the operating system's generator. 0 / -1 (also when the
  // generator fails).
  int Random(uint32_t bits);
  // Advances this (made odd first) to the next probable prime p with p != 1 (mod e) when e != 0,
  // searching sieved windows of 16,384 odd candidates. Returns 10 plus the number of candidates
  // that failed IsProbablePrime; -1 on allocation failure or when e is 1 or 2 (no odd p can
  // satisfy the condition).
  int NextPrime(uint32_t e);
  // The base-2 probable-prime test (one round of Euler's criterion, strengthened for
  // n = 1 mod 8): 0 probable prime, 1 composite (1 included), -1 for zero or even values or on
  // allocation failure.
  int IsProbablePrime() const;

 private:
  // Installs block (capacity cap words) as the storage with `n` significant words; the old
  // storage is wiped and freed.
  void Adopt(uint32_t* block, uint32_t cap, uint32_t n);
  // Makes room for n words and zero-fills words used..n-1. 0 / -1.
  int GrowZeroed(uint32_t n);
};

// Allocates n words (null on failure or n == 0); free with FreeWords.
uint32_t* AllocWords(size_t n);
// Wipes and frees a block from AllocWords (null allowed).
void FreeWords(uint32_t* block, size_t n);

}  // namespace nivra::crypto
