#include "service/transport_key.h"

#include <mutex>
#include <vector>

#include "crypto/bignum.h"
#include "crypto/random.h"
#include "crypto/rsa_key.h"

namespace nivra::service {

namespace {

struct KeyState {
  std::mutex lock;
  crypto::RsaHandle handle = 0;
  uint32_t bits = 0;
};

KeyState& State() {
  // Never destroyed: channels may still use the key while the process exits.
  static KeyState* state = new KeyState;
  return *state;
}

// a = a random value in [2, n - 2].
bool RandomBase(const crypto::CBigNumber& n, crypto::CBigNumber& a) {
  const uint32_t bytes = (n.BitLength() + 7) / 8 + 8;  // extra bytes keep the reduction even
  std::vector<uint8_t> random(bytes);
  if (!crypto::RandomFill(random.data(), random.size())) return false;
  crypto::CBigNumber raw, range;
  if (raw.FromBytes(random.data(), 0, bytes) != 0 || range.CopyFrom(n) != 0) return false;
  range.SubWord(3);
  if (a.Mod(raw, range) != 0) return false;
  return a.AddWord(2) == 0;
}

bool PrimesPass(crypto::RsaHandle handle) {
  crypto::RsaKeyInterface* record = nullptr;
  if (crypto::RsaLookupKey(handle, &record) != crypto::kOk || record->key == nullptr) return false;
  return PassesMillerRabin(record->key->p, kExtraPrimeRounds) &&
         PassesMillerRabin(record->key->q, kExtraPrimeRounds);
}

}  // namespace

bool PassesMillerRabin(const crypto::CBigNumber& n, int rounds) {
  if (!n.IsOdd() || n.BitLength() < 3 || n.IsWord(3)) return false;
  crypto::CBigNumber minusOne, d;
  if (minusOne.CopyFrom(n) != 0) return false;
  minusOne.SubWord(1);
  if (d.CopyFrom(minusOne) != 0) return false;
  const uint32_t s = d.RemoveTrailingZeros();
  for (int round = 0; round < rounds; ++round) {
    crypto::CBigNumber a, x, squared;
    if (!RandomBase(n, a) || x.ModExp(a, d, n) != 0) return false;
    if (x.IsWord(1) || x.Compare(minusOne) == 0) continue;
    bool witnessFailed = true;
    for (uint32_t i = 1; i < s; ++i) {
      if (squared.Square(x) != 0 || x.Mod(squared, n) != 0) return false;
      if (x.Compare(minusOne) == 0) {
        witnessFailed = false;
        break;
      }
    }
    if (witnessFailed) return false;
  }
  return true;
}

Status TransportKeyInit() {
  KeyState& state = State();
  std::lock_guard<std::mutex> guard(state.lock);
  if (state.handle != 0) return provider::kOk;
  for (int attempt = 0; attempt < crypto::kRsaKeyGenAttempts; ++attempt) {
    crypto::RsaHandle handle = 0;
    if (crypto::RsaGenerateNewKey(&handle, kTransportKeyBits, kTransportKeyExponent) !=
        crypto::kOk) {
      return provider::kNteFail;
    }
    uint32_t bits = 0;
    if (PrimesPass(handle) && crypto::RsaHandleKeyBits(handle, &bits) == crypto::kOk) {
      state.handle = handle;
      state.bits = bits;
      return provider::kOk;
    }
    crypto::RsaFreeKey(handle);
  }
  return provider::kNteFail;
}

crypto::RsaHandle TransportKey() { return State().handle; }
uint32_t TransportKeyBits() { return State().bits; }

}  // namespace nivra::service
