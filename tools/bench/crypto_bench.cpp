// Crypto benchmark: our library against this platform's peer (OpenSSL natively, the Windows
// software provider through CryptoAPI on Windows / Wine), measured in the same process in
// alternating rounds. Prints one Markdown table; never part of the test suite.
//
//   crypto_bench [generations]   RSA key generations per side (default 7, median reported)
//
// The other rows alternate short rounds of each side and report each side's fastest round (see
// Statistic in bench_timing.h).
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "bench_engine.h"
#include "bench_table.h"
#include "bench_timing.h"
#include "crypto/digest_info.h"

namespace nivra::bench {
namespace {

constexpr size_t kHashBytes = 1 << 20;
// Triple DES is slow enough that a megabyte per call rarely fits between two preemptions of a
// busy machine; the throughput is the same with 64 KiB per call.
constexpr size_t kCipherBytes = 1 << 16;

// Speed goals, as minimum ratios of peer time to our time. Against the Windows software
// provider we aim to be faster on every row; against OpenSSL (which uses the SHA extensions and
// assembly big-number code) the goals are fractions.
#ifdef _WIN32
constexpr double kGoalSha1 = 1.0, kGoalTdes = 1.0, kGoalPrivate = 1.0, kGoalPublic = 1.0,
                 kGoalKeygen = 1.0;
#else
constexpr double kGoalSha1 = 0.4, kGoalTdes = 0.9, kGoalPrivate = 1.0 / 6, kGoalPublic = 0,
                 kGoalKeygen = 0;
#endif

std::string Same(bool same) { return same ? "yes" : "DIFFERENT"; }

std::vector<uint8_t> PatternBytes(size_t length, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<uint8_t> out(length);
  for (auto& b : out) b = static_cast<uint8_t>(rng());
  return out;
}

BenchRow Sha1Row(BenchEngine& ours, BenchEngine& peer) {
  const auto data = PatternBytes(kHashBytes, 1);
  uint8_t a[20] = {}, b[20] = {};
  BenchRow row{"SHA-1, 1 MiB", double(kHashBytes), {}, kGoalSha1, {}};
  row.timing = MeasurePair([&] { return ours.Sha1(data.data(), data.size(), a); },
                           [&] { return peer.Sha1(data.data(), data.size(), b); },
                           kQuickOperationPlan);
  if (row.timing.ours.outcome == Outcome::kDone && row.timing.peer.outcome == Outcome::kDone)
    row.check = Same(std::memcmp(a, b, sizeof(a)) == 0);
  return row;
}

BenchRow TdesRow(BenchEngine& ours, BenchEngine& peer) {
  const auto key = PatternBytes(16, 2);
  const auto iv = PatternBytes(8, 3);
  const auto plain = PatternBytes(kCipherBytes, 4);
  BenchRow row{"Triple DES (two keys) CBC encryption, 64 KiB", double(kCipherBytes), {}, kGoalTdes,
               {}};

  // Both engines encrypt the same first buffer from the same IV; the results must agree.
  auto a = plain, b = plain;
  const Outcome oursReady = ours.TdesCbcStart(key.data(), iv.data());
  const Outcome peerReady = peer.TdesCbcStart(key.data(), iv.data());
  if (oursReady == Outcome::kDone && peerReady == Outcome::kDone &&
      ours.TdesCbcEncrypt(a.data(), a.size()) == Outcome::kDone &&
      peer.TdesCbcEncrypt(b.data(), b.size()) == Outcome::kDone)
    row.check = Same(a == b);

  // Timing continues the chain over the same buffers.
  row.timing = MeasurePair(
      [&] { return oursReady == Outcome::kDone ? ours.TdesCbcEncrypt(a.data(), a.size()) : oursReady; },
      [&] { return peerReady == Outcome::kDone ? peer.TdesCbcEncrypt(b.data(), b.size()) : peerReady; },
      kQuickOperationPlan);
  return row;
}

BenchRow KeygenRow(BenchEngine& ours, BenchEngine& peer, int generations) {
  BenchRow row{"RSA-2048 key generation (e = 65537), median", 0, {}, kGoalKeygen, {}};
  row.timing = MeasurePair([&] { return ours.RsaGenerate(); }, [&] { return peer.RsaGenerate(); },
                           TimingPlan{generations, generations, 0, 0, Statistic::kMedian});
  return row;
}

// The PKCS#1 v1.5 type 1 block of the SHA-1 DigestInfo of hash: 00 01 FF..FF 00 DigestInfo.
bool SignatureBlock(const uint8_t hash[20], uint8_t block[kRsaBytes]) {
  uint8_t digestInfo[64];
  size_t length = 0;
  if (crypto::DigestInfoEncode(crypto::DigestAlgorithm::kSha1, hash, 20, digestInfo,
                               sizeof(digestInfo), &length) != crypto::kOk)
    return false;
  block[0] = 0x00;
  block[1] = 0x01;
  std::memset(block + 2, 0xFF, kRsaBytes - 3 - length);
  block[kRsaBytes - length - 1] = 0x00;
  std::memcpy(block + kRsaBytes - length, digestInfo, length);
  return true;
}

// Private- and public-key rows on one key that the peer generates and our library loads.
void RsaKeyRows(BenchEngine& ours, BenchEngine& peer) {
  BenchRow privateRow{"RSA-2048 private-key operation (CRT), one signature", 0, {}, kGoalPrivate, {}};
  BenchRow publicRow{"RSA-2048 public-key operation (e = 65537), one verification", 0, {},
                     kGoalPublic, {}};

  RsaKeyComponents key;
  Outcome peerKey = peer.RsaMakeSharedKey(&key);
  Outcome oursKey = peerKey == Outcome::kDone ? ours.RsaLoadSharedKey(key) : Outcome::kNotBuilt;
  const auto hash = PatternBytes(20, 5);
  uint8_t block[kRsaBytes];
  if (!SignatureBlock(hash.data(), block)) peerKey = oursKey = Outcome::kFailed;

  uint8_t oursSig[kRsaBytes] = {}, peerSig[kRsaBytes] = {};
  auto oursSign = [&] {
    return oursKey == Outcome::kDone ? ours.RsaSign(block, hash.data(), oursSig) : oursKey;
  };
  auto peerSign = [&] {
    return peerKey == Outcome::kDone ? peer.RsaSign(block, hash.data(), peerSig) : peerKey;
  };
  privateRow.timing =
      MeasurePair(oursSign, peerSign, kQuickOperationPlan);
  const bool bothSigned = privateRow.timing.ours.outcome == Outcome::kDone &&
                          privateRow.timing.peer.outcome == Outcome::kDone;
  if (bothSigned) privateRow.check = Same(std::memcmp(oursSig, peerSig, kRsaBytes) == 0);
  PrintRow(privateRow);

  // Each side verifies the other's signature when both signed, else its own.
  const uint8_t* forOurs = bothSigned ? peerSig : oursSig;
  const uint8_t* forPeer = bothSigned ? oursSig : peerSig;
  publicRow.timing = MeasurePair(
      [&] { return oursKey == Outcome::kDone ? ours.RsaVerify(forOurs, block, hash.data()) : oursKey; },
      [&] { return peerKey == Outcome::kDone ? peer.RsaVerify(forPeer, block, hash.data()) : peerKey; },
      kQuickOperationPlan);
  if (bothSigned) publicRow.check = Same(publicRow.timing.ours.outcome == Outcome::kDone &&
                                         publicRow.timing.peer.outcome == Outcome::kDone);
  PrintRow(publicRow);
}

}  // namespace
}  // namespace nivra::bench

int main(int argc, char** argv) {
  using namespace nivra::bench;
  const int generations = argc > 1 ? std::max(1, std::atoi(argv[1])) : 7;
  auto ours = MakeOurEngine();
  auto peer = MakePeerEngine();
  PrintTableHeading(ours->Name(), peer->Name());
  PrintRow(Sha1Row(*ours, *peer));
  PrintRow(TdesRow(*ours, *peer));
  RsaKeyRows(*ours, *peer);
  PrintRow(KeygenRow(*ours, *peer, generations));
  return 0;
}
