// One implementation of the operations that the crypto benchmark measures. The benchmark runs
// our library and a peer (OpenSSL natively, the Windows software provider under Windows) through
// this interface in the same process, so both see the same machine state.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace nivra::bench {

constexpr size_t kRsaBits = 2048;
constexpr size_t kRsaBytes = kRsaBits / 8;
constexpr uint32_t kRsaPublicExponent = 65537;

// An RSA private key as big-endian unsigned integers (PKCS#1 RSAPrivateKey components).
struct RsaKeyComponents {
  std::vector<uint8_t> n, e, d, p, q, dP, dQ, qInv;
};

// What an engine can answer for one operation.
enum class Outcome {
  kDone,
  kNotBuilt,  // the engine has no such operation (yet)
  kFailed,    // the operation ran and reported an error
};

class BenchEngine {
 public:
  virtual ~BenchEngine() = default;

  // Name and version of the implementation, for the table heading.
  virtual std::string Name() const = 0;

  // SHA-1 of data[0..len) into out.
  virtual Outcome Sha1(const uint8_t* data, size_t len, uint8_t out[20]) = 0;

  // Two-key Triple DES in CBC mode: TdesCbcStart sets key and IV; TdesCbcEncrypt encrypts
  // data[0..len) in place (len a multiple of 8) continuing the chain, without padding.
  virtual Outcome TdesCbcStart(const uint8_t key[16], const uint8_t iv[8]) = 0;
  virtual Outcome TdesCbcEncrypt(uint8_t* data, size_t len) = 0;

  // Generates an RSA-2048 key with e = 65537 and discards it.
  virtual Outcome RsaGenerate() = 0;

  // Generates the key that the signing rows use, keeps it, and hands out its components.
  // Engines that cannot do this answer kNotBuilt; the benchmark then asks the other engine.
  virtual Outcome RsaMakeSharedKey(RsaKeyComponents* out) = 0;

  // Loads a key made by the other engine.
  virtual Outcome RsaLoadSharedKey(const RsaKeyComponents& key) = 0;

  // Signs: the private-key (CRT) operation on the PKCS#1 v1.5 block `block` (type 1, SHA-1
  // DigestInfo of `hash`), big-endian result in signature. Engines with a raw RSA operation use
  // block; engines that only sign hashes use hash and build the same block themselves.
  virtual Outcome RsaSign(const uint8_t block[kRsaBytes], const uint8_t hash[20],
                          uint8_t signature[kRsaBytes]) = 0;

  // Verifies: the public-key operation on signature, compared with block (or, for engines
  // that only verify hashes, checked against hash). kFailed when it does not match.
  virtual Outcome RsaVerify(const uint8_t signature[kRsaBytes], const uint8_t block[kRsaBytes],
                            const uint8_t hash[20]) = 0;
};

// Our crypto library.
std::unique_ptr<BenchEngine> MakeOurEngine();

// The peer of this platform: OpenSSL's libcrypto natively, the "Microsoft Strong Cryptographic
// Provider" through CryptoAPI on Windows (Wine's rsaenh under Wine).
std::unique_ptr<BenchEngine> MakePeerEngine();

}  // namespace nivra::bench
