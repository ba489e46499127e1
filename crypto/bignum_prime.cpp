// Prime candidates: random numbers of an exact size, the sieved prime search and the base-2
// probable-prime test.
#include <vector>

#include "crypto/bignum.h"
#include "crypto/bignum_words.h"
#include "crypto/random.h"

namespace nivra::crypto {

namespace {

constexpr uint32_t kWindowCandidates = 16384;  // odd candidates per sieve window
constexpr uint32_t kSmallPrimeLimit = 65536;

// The odd primes below 65,536, from a bit-array sieve by the odd primes below 256. Built once;
// the table is constant, so sharing it between searches and threads changes no result.
const std::vector<uint32_t>& SmallPrimes() {
  static const std::vector<uint32_t> primes = [] {
    std::vector<uint8_t> odd(kSmallPrimeLimit / 16, 0xFF);  // bit i stands for 2i + 1
    odd[0] &= 0xFE;                                          // 1 is not prime
    for (uint32_t p = 3; p < 256; p += 2) {
      uint32_t ip = p / 2;
      if ((odd[ip / 8] & (1u << (ip % 8))) == 0) continue;
      for (uint32_t v = p * p; v < kSmallPrimeLimit; v += 2 * p) {
        uint32_t iv = v / 2;
        odd[iv / 8] &= static_cast<uint8_t>(~(1u << (iv % 8)));
      }
    }
    std::vector<uint32_t> list;
    for (uint32_t i = 1; i < kSmallPrimeLimit / 2; ++i) {
      if (odd[i / 8] & (1u << (i % 8))) list.push_back(2 * i + 1);
    }
    return list;
  }();
  return primes;
}

class Window {
 public:
  Window() : bits_(kWindowCandidates / 8, 0xFF) {}
  void Cross(uint32_t i) { bits_[i / 8] &= static_cast<uint8_t>(~(1u << (i % 8))); }
  bool Alive(uint32_t i) const { return (bits_[i / 8] & (1u << (i % 8))) != 0; }

 private:
  std::vector<uint8_t> bits_;
};

// Crosses out the multiples of p among value + 2i, where value mod p = r (value odd). The prime
// itself, which can stand in the window only while value is below 65,536, is kept.
void CrossMultiples(Window& window, const CBigNumber& value, uint32_t p, uint32_t r) {
  // value + 2i = 0 (mod p)  <=>  i = -r * 2^(-1) (mod p), and 2^(-1) = (p + 1) / 2.
  uint32_t i = static_cast<uint32_t>((static_cast<uint64_t>(p - r) % p) * ((p + 1) / 2) % p);
  if (value.used <= 1) {
    uint64_t v = value.used == 0 ? 0 : value.words[0];
    if (v + 2ull * i == p) i += p;
  }
  for (; i < kWindowCandidates; i += p) window.Cross(i);
}

// Sieves the window that starts at the odd value: small-prime multiples, and the candidates
// congruent to 1 modulo e when e is non-zero.
void SieveWindow(Window& window, const CBigNumber& value, uint32_t e) {
  const size_t n = WordsTrim(value.words, value.used);
  const std::vector<uint32_t>& primes = SmallPrimes();
  // Two primes below 2^16 multiply to below 2^32: one division serves both residues.
  size_t k = 0;
  for (; k + 1 < primes.size(); k += 2) {
    uint32_t p1 = primes[k];
    uint32_t p2 = primes[k + 1];
    uint32_t r = WordsModWord(value.words, n, p1 * p2);
    CrossMultiples(window, value, p1, r % p1);
    CrossMultiples(window, value, p2, r % p2);
  }
  for (; k < primes.size(); ++k) {
    CrossMultiples(window, value, primes[k], WordsModWord(value.words, n, primes[k]));
  }
  if (value.IsWord(1)) window.Cross(0);

  if (e == 0) return;
  const uint32_t low = n == 0 ? 0 : value.words[0];
  if ((e & (e - 1)) == 0) {
    const uint32_t mask = e - 1;
    for (uint32_t i = 0; i < kWindowCandidates; ++i) {
      if (((low + 2 * i) & mask) == 1) window.Cross(i);
    }
    return;
  }
  uint64_t c = WordsModWord(value.words, n, e);  // (value + 2i) mod e, for e >= 3
  for (uint32_t i = 0; i < kWindowCandidates; ++i) {
    if (c == 1) window.Cross(i);
    c += 2;
    if (c >= e) c -= e;
  }
}

}  // namespace

int CBigNumber::Random(uint32_t bits) {
  if (bits == 0) {
    used = 0;
    return 0;
  }
  const uint32_t n = (bits + 31) / 32;
  if (n > capacity && Reserve(n) != 0) return -1;
  if (!RandomFill(reinterpret_cast<uint8_t*>(words), n * sizeof(uint32_t))) return -1;
  const uint32_t topBits = bits - (n - 1) * 32;
  if (topBits < 32) words[n - 1] &= (1u << topBits) - 1;
  used = n;
  words[(bits - 1) / 32] |= 1u << ((bits - 1) % 32);
  if (bits >= 2) words[(bits - 2) / 32] |= 1u << ((bits - 2) % 32);
  words[0] |= 1u;
  return 0;
}

int CBigNumber::IsProbablePrime() const {
  if (!IsOdd()) return -1;
  if (IsWord(1)) return 1;
  const uint32_t residue = words[0] & 7u;
  CBigNumber exponent, two, r, minusOne;
  // (n - 1) / 2 for n = 3, 5, 7 (mod 8); (n - 1) / 4 for n = 1 (mod 8). n is odd, so the shifts
  // drop exactly the 1 and the 01 below them.
  if (exponent.CopyFrom(*this) != 0 || two.SetWord(2) != 0) return -1;
  exponent.ShiftRight(residue == 1 ? 2 : 1);
  if (r.ModExp(two, exponent, *this) != 0) return -1;
  if (minusOne.CopyFrom(*this) != 0) return -1;
  minusOne.SubWord(1);
  bool isOne = r.IsWord(1);
  bool isMinusOne = r.Compare(minusOne) == 0;
  bool pass;
  switch (residue) {
    case 7: pass = isOne; break;        // 2 is a quadratic residue
    case 3: case 5: pass = isMinusOne; break;  // 2 is a non-residue
    default: pass = isOne || isMinusOne; break;
  }
  return pass ? 0 : 1;
}

int CBigNumber::NextPrime(uint32_t e) {
  if (e == 1 || e == 2) return -1;
  if (!IsOdd() && AddWord(1) != 0) return -1;
  int failed = 0;
  for (;;) {
    Window window;
    SieveWindow(window, *this, e);
    uint32_t at = 0;  // candidate index the value currently stands on
    for (uint32_t i = 0; i < kWindowCandidates; ++i) {
      if (!window.Alive(i)) continue;
      if (AddWord(2 * (i - at)) != 0) return -1;
      at = i;
      int test = IsProbablePrime();
      if (test < 0) return -1;
      if (test == 0) return 10 + failed;
      ++failed;
    }
    if (AddWord(2 * (kWindowCandidates - at)) != 0) return -1;
  }
}

}  // namespace nivra::crypto
