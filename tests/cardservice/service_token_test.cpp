// Card commands on a published slot: the statuses of the PIN and container commands, containers,
// key IDs and certificates as the provider's module path finds them on the token (read by the
// Windows tests' probe), an imported key checked by the crypto library, and a PIN that locks.
// The per-channel login, creating, listing and deleting containers, signatures that OpenSSL
// verifies and decryption are the Windows tests' against the real service (tests/service).
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <tuple>

#include "crypto/rsa_interface.h"
#include "tests/cardservice/service_fixture.h"
#include "tools/p11helper/vendor_class.h"

namespace nivra::cardtest {
namespace {

using ByteString = std::vector<uint8_t>;

class TokenTest : public ServiceTest {
 protected:
  // Creates a public CKO_DATA token object with this label and CKA_APPLICATION.
  bool NativeCreateData(const std::string& label, const std::string& application) {
    return std::system((std::string("pkcs11-tool --module /usr/lib/softhsm/libsofthsm2.so") +
                        " --token-label " + kTokenLabel +
                        " --login --pin " + kUserPin + " --write-object /dev/null --type data" +
                        " --label '" + label + "' --application-label '" + application +
                        "' >/dev/null 2>&1").c_str()) == 0;
  }
};

TEST_F(TokenTest, PinAndContainerCommandsAnswerWithTheAgreedStatuses) {
  auto channel = Open();
  const std::string newPin = "changed-pin-22", freshPin = "fresh-pin-9";
  constexpr int kAny = -1;  // the value is not the point of the step
  // The command, its texts, and the status and value it is answered with.
  const std::tuple<uint16_t, std::string, std::string, uint32_t, int> steps[] = {
      {frames::kCmdOpenContainer, "", "", kNteBadKeyset, kAny},  // on an empty token
      {frames::kCmdEnumContainers, "", "", kNoMoreItems, kAny},
      {frames::kCmdVerifyPin, "nope", "", 0, 0},
      {frames::kCmdChangePin, "nope", newPin, kScardInvalidChv, kAny},
      {frames::kCmdChangePin, kUserPin, newPin, 0, 1},
      {frames::kCmdVerifyPin, kUserPin, "", 0, 0},
      {frames::kCmdVerifyPin, newPin, "", 0, 1},
      {frames::kCmdUnblockPin, "nope", kUserPin, kScardInvalidChv, kAny},
      {frames::kCmdUnblockPin, kSoPin, kUserPin, 0, 1},
      {frames::kCmdVerifyPin, kUserPin, "", 0, 1},
      {frames::kCmdCreateContainer, "gone", "", 0, kAny},
      {frames::kCmdInitToken, "nope", kUserPin, kScardInvalidChv, kAny},
      {frames::kCmdInitTokenPlain, "", "", kNteBadFlags, kAny},  // a token without a PIN pad
      {frames::kCmdInitToken, kSoPin, freshPin, 0, kAny},
      {frames::kCmdLoginState, "", "", 0, 0},  // logged out by the initialisation
      {frames::kCmdVerifyPin, freshPin, "", 0, 1},
      {frames::kCmdOpenContainer, "gone", "", kNteBadKeyset, kAny},  // gone with it
  };
  for (const auto& [command, text, text2, status, value] : steps) {
    CardResult result = Text(*channel, command, text, text2);
    EXPECT_EQ(std::pair(result.status, value == kAny ? 0 : result.response.value),
              std::pair(status, value == kAny ? 0 : static_cast<uint32_t>(value)))
        << std::hex << command << " " << text << " " << text2;
  }
}

// The provider's module path through the forwarding helper keeps a container as a data object
// with the helper's class marker (SoftHSM2 refuses the vendor class). The service serves it, and
// keeps key pairs, certificates and containers of its own where that path finds them.
TEST_F(TokenTest, ContainersKeysAndCertificatesAreWhereTheModulePathFindsThem) {
  ASSERT_TRUE(NativeCreateData("via-helper", p11helper::VendorMarker(0x80000001)));
  ASSERT_TRUE(NativeCreateData("not-a-container", "some other application"));
  auto channel = Open();
  CardResult first = Text(*channel, frames::kCmdOpenContainer, "");  // the empty name: the first
  EXPECT_EQ(first.response.name, "via-helper");
  EXPECT_EQ(Text(*channel, frames::kCmdOpenContainer, "not-a-container").status, kNteBadKeyset);
  frames::CardRequest request;
  request.index = 1;
  EXPECT_EQ(Call(*channel, frames::kCmdEnumContainers, request).status, kNoMoreItems);
  Login(*channel);
  const uint32_t handle = first.response.value;
  const std::string signatureId = Hex(std::string("via-helper_cspS"));
  const std::string exchangeId = Hex(std::string("via-helper_cspX"));
  for (uint32_t keySpec : {kAtSignature, kAtKeyExchange}) {
    request = Key(handle, keySpec);
    request.bits = 1024;
    request.exponent = 65537;
    frames::PublicKeyBlock key = Call(*channel, frames::kCmdGenerateKeyPair, request)
                                     .response.publicKey;
    ASSERT_EQ(std::pair(key.bits, key.exponent), std::pair(1024u, 65537u)) << keySpec;
    const std::string& id = keySpec == kAtSignature ? signatureId : exchangeId;
    EXPECT_TRUE(NativeHas("class=2 .*id=" + id + " .*modulus=" + Hex(key.modulus))) << keySpec;
    // A block one byte short of the modulus is refused.
    EXPECT_EQ(Call(*channel, frames::kCmdPrivateKeyOp, Key(handle, keySpec, ByteString(127, 1)))
                  .status,
              kNteBadData);
  }
  // A second certificate replaces the first, under the exchange pair's key ID alone.
  for (const char* file : {"san_edipartyname.der", "san_x400address.der"}) {
    std::ifstream in(std::string("/usr/lib/python3/dist-packages/cryptography_vectors/x509/") +
                     file, std::ios::binary);
    const ByteString certificate{std::istreambuf_iterator<char>(in), {}};
    ASSERT_FALSE(certificate.empty());
    ASSERT_EQ(Call(*channel, frames::kCmdWriteCertificate,
                   Key(handle, kAtKeyExchange, certificate)).status, 0u);
    CardResult read = Call(*channel, frames::kCmdReadCertificate, Key(handle, kAtKeyExchange));
    EXPECT_EQ(read.response.data, certificate);
    EXPECT_TRUE(NativeHas("class=1 .*id=" + exchangeId + " .*value=" + Hex(certificate)));
  }
  EXPECT_FALSE(NativeHas("class=1 .*id=" + signatureId));
  // The service's own container of the empty name, without keys, deleted once.
  const uint32_t empty = Create(*channel, "");
  EXPECT_TRUE(NativeHas("class=0 .*label=" + Hex(std::string("DefaultContainer")) +
                        " .*application=" + Hex(std::string("NivraCSP container"))));
  EXPECT_EQ(Call(*channel, frames::kCmdReadPublicKey, Key(empty, kAtSignature)).status, kNteNoKey);
  EXPECT_EQ(Call(*channel, frames::kCmdReadCertificate, Key(empty, kAtKeyExchange)).status,
            kNteNotFound);
  for (uint32_t status : {0u, kNteBadKeyset}) {
    EXPECT_EQ(Call(*channel, frames::kCmdDeleteContainer, Key(empty, 0)).status, status);
  }
}

TEST_F(TokenTest, ImportedKeyBlobSignsLikeTheKeyItCameFrom) {
  // A PRIVATEKEYBLOB of a key of the crypto library: the header, then N, P, Q, DP, DQ, QInv and D,
  // each little-endian in its full length.
  frames::RsaOwner key;
  ASSERT_EQ(crypto::RsaGenerateNewKey(key.Out(), 1024, 65537), crypto::kOk);
  ByteString blob = {7, 2, 0, 0, 0x00, 0xA4, 0, 0, 'R', 'S', 'A', '2', 0, 4, 0, 0, 1, 0, 1, 0};
  for (auto [id, length] : {std::pair{crypto::kRsaComponentN, 128}, {crypto::kRsaComponentP, 64},
                            {crypto::kRsaComponentQ, 64}, {crypto::kRsaComponentDP, 64},
                            {crypto::kRsaComponentDQ, 64}, {crypto::kRsaComponentQInv, 64},
                            {crypto::kRsaComponentD, 128}}) {
    ByteString part(length);
    size_t size = part.size();
    ASSERT_EQ(crypto::RsaHandleExportKey(key.Get(), id, part.data(), &size), crypto::kOk);
    part.resize(size);
    part.insert(part.begin(), length - size, 0);
    blob.insert(blob.end(), part.rbegin(), part.rend());
  }
  auto channel = Open();
  Login(*channel);
  uint32_t handle = Create(*channel, "imported");
  EXPECT_EQ(Call(*channel, frames::kCmdImportKeyPair, Key(handle, kAtSignature, {1, 2, 3})).status,
            kNteBadData);
  ASSERT_EQ(Call(*channel, frames::kCmdImportKeyPair, Key(handle, kAtSignature, blob)).status, 0u);
  ByteString block(blob.begin() + 20, blob.begin() + 148), expected(128);
  block.front() = 0;  // any block below the modulus will do
  ASSERT_EQ(crypto::RsaHandlePrivate(key.Get(), block.data(), 128, expected.data(), nullptr),
            crypto::kOk);
  EXPECT_EQ(Call(*channel, frames::kCmdPrivateKeyOp, Key(handle, kAtSignature, block), 128)
                .response.data,
            expected);
}

// A token whose user PIN locks after three wrong PINs, as a card's does.
class LockingTokenTest : public ServiceTest {
 protected:
  LockingTokenTest() { module_ = NIVRA_PIN_LOCK_MODULE; }
};

TEST_F(LockingTokenTest, WrongPinsAreRefusedUntilThePinIsBlocked) {
  auto channel = Open();
  for (int attempt = 1; attempt <= 3; ++attempt) {
    CardResult refused = Text(*channel, frames::kCmdVerifyPin, "wrong");
    EXPECT_EQ(std::pair(refused.status, refused.response.value), std::pair(0u, 0u)) << attempt;
  }
  EXPECT_EQ(Text(*channel, frames::kCmdVerifyPin, kUserPin).status, kScardChvBlocked);
  EXPECT_EQ(Text(*channel, frames::kCmdUnblockPin, kSoPin, kUserPin).response.value, 1u);
  EXPECT_EQ(Call(*channel, frames::kCmdLoginState).response.value, 1u);
}

}  // namespace
}  // namespace nivra::cardtest
