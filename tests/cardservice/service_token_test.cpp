// Card commands against the token: the per-channel login, containers, key pairs, raw RSA results
// checked by the crypto library, certificates and PINs; what the service writes is read back natively, as the provider's module
// path would find it.
#include <algorithm>
#include <fstream>
#include <iterator>

#include "crypto/pkcs1.h"
#include "tools/p11helper/vendor_class.h"
#include "tests/cardservice/service_fixture.h"

namespace nivra::cardtest {
namespace {

using ByteString = std::vector<uint8_t>;

using TokenTest = ServiceTest;

constexpr char kDataFormApplication[] = "NivraCSP container";

// A published X.509 certificate (DER) from the cryptography test vectors.
ByteString Certificate(const std::string& file) {
  std::ifstream in("/usr/lib/python3/dist-packages/cryptography_vectors/x509/" + file,
                   std::ios::binary);
  return ByteString(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST_F(TokenTest, LoginBelongsToTheChannel) {
  auto first = Open();
  auto second = Open();
  EXPECT_EQ(Text(*first, frames::kCmdCreateContainer, "scoped").status, kScardNotAuthenticated);
  Login(*first);
  EXPECT_EQ(Call(*first, frames::kCmdLoginState).response.value, 1u);
  EXPECT_EQ(Call(*second, frames::kCmdLoginState).response.value, 0u);
  EXPECT_EQ(Text(*second, frames::kCmdCreateContainer, "scoped").status, kScardNotAuthenticated);
  EXPECT_EQ(Text(*first, frames::kCmdCreateContainer, "scoped").status, 0u);
  // The second channel logs in with the same PIN while the token stays logged in: the first
  // channel's login holds.
  Login(*second);
  EXPECT_EQ(Call(*first, frames::kCmdLoginState).response.value, 1u);
  // A wrong PIN on the second channel makes the token judge it: both logins lapse.
  EXPECT_EQ(Text(*second, frames::kCmdVerifyPin, "wrong").response.value, 0u);
  EXPECT_EQ(Call(*first, frames::kCmdLoginState).response.value, 0u);
  EXPECT_EQ(Call(*second, frames::kCmdLoginState).response.value, 0u);
  // The trace shows the outer slot frame, the card command inside it and the answer's status.
  std::string log = service_->Log();
  EXPECT_NE(log.find("< 0x7011"), std::string::npos);
  EXPECT_NE(log.find("slot " + std::to_string(slot_) + " card command 0x2012"), std::string::npos);
  EXPECT_NE(log.find("> 0xa012 status 0x00000000"), std::string::npos);
}

// Creating, listing and deleting through the provider are the published-slot tests'
// (tests/service); here what the provider cannot see: the data form on the token, the default
// container's name and the empty name.
TEST_F(TokenTest, ContainersAreDataObjectsAndTheEmptyNameOpensTheFirst) {
  auto channel = Open();
  EXPECT_EQ(Text(*channel, frames::kCmdOpenContainer, "").status, kNteBadKeyset);
  EXPECT_EQ(Call(*channel, frames::kCmdEnumContainers).status, kNoMoreItems);
  Login(*channel);
  uint32_t alpha = Create(*channel, "alpha");
  uint32_t defaultHandle = Create(*channel, "");
  // SoftHSM2 refuses the vendor class: the containers are data objects that the provider's
  // module path finds by their application marker.
  auto labels = NativeDataLabels(kDataFormApplication);
  std::sort(labels.begin(), labels.end());
  EXPECT_EQ(labels, (std::vector<std::string>{"DefaultContainer", "alpha"}));
  CardResult opened = Text(*channel, frames::kCmdOpenContainer, "DefaultContainer");
  EXPECT_EQ(opened.response.value, defaultHandle);
  CardResult first = Text(*channel, frames::kCmdOpenContainer, "");
  EXPECT_EQ(first.status, 0u);
  EXPECT_FALSE(first.response.name.empty());
  frames::CardRequest doomed;
  doomed.handle = alpha;
  EXPECT_EQ(Call(*channel, frames::kCmdDeleteContainer, doomed).status, 0u);
  EXPECT_EQ(Call(*channel, frames::kCmdDeleteContainer, doomed).status, kNteBadKeyset);
}

TEST_F(TokenTest, ContainerThatTheForwardingHelperStoredIsServed) {
  // The provider's module path through the forwarding helper keeps a container on SoftHSM2 as a
  // data object with the helper's class marker.
  const std::string marker = p11helper::VendorMarker(0x80000001);
  ASSERT_TRUE(NativeCreateData("via-helper", marker));
  ASSERT_TRUE(NativeCreateData("not-a-container", "some other application"));
  auto channel = Open();
  CardResult opened = Text(*channel, frames::kCmdOpenContainer, "via-helper");
  ASSERT_EQ(opened.status, 0u);
  EXPECT_EQ(Text(*channel, frames::kCmdOpenContainer, "not-a-container").status, kNteBadKeyset);
  frames::CardRequest first;
  CardResult listed = Call(*channel, frames::kCmdEnumContainers, first);
  EXPECT_EQ(listed.response.name, "via-helper");
  first.index = 1;
  EXPECT_EQ(Call(*channel, frames::kCmdEnumContainers, first).status, kNoMoreItems);
  Login(*channel);
  frames::PublicKeyBlock key = Generate(*channel, opened.response.value, kAtSignature);
  EXPECT_EQ(NativeValue(CKO_PUBLIC_KEY, "via-helper_cspS", "modulus"), key.modulus);
}

// Signatures through the service that OpenSSL verifies are the published-slot tests'
// (tests/service); here the key IDs, the raw operations' lengths and the certificates.
TEST_F(TokenTest, GeneratedPairsKeepTheirKeyIdsAndCertificates) {
  auto channel = Open();
  Login(*channel);
  uint32_t handle = Create(*channel, "keys");
  for (uint32_t keySpec : {kAtSignature, kAtKeyExchange}) {
    SCOPED_TRACE(keySpec);
    frames::PublicKeyBlock key = Generate(*channel, handle, keySpec);
    ASSERT_EQ(key.bits, 1024u);
    EXPECT_EQ(key.exponent, 65537u);
    // The pair carries the derived key ID of the provider's format.
    std::string id = std::string("keys") + (keySpec == kAtSignature ? "_cspS" : "_cspX");
    EXPECT_EQ(NativeValue(CKO_PUBLIC_KEY, id, "modulus"), key.modulus);
    const size_t k = key.modulus.size();
    ByteString block(k), payload(20, 0x5A);
    ASSERT_EQ(crypto::Pkcs1PadType1(block.data(), k, payload.data(), payload.size()), crypto::kOk);
    CardResult signature = Call(*channel, frames::kCmdPrivateKeyOp, Key(handle, keySpec, block), k);
    ASSERT_EQ(signature.status, 0u);

    // The public operation undoes the private one.
    CardResult opened = Call(*channel, frames::kCmdPublicKeyOp,
                             Key(handle, keySpec, signature.response.data), k);
    EXPECT_EQ(opened.response.data, block);
    // A block one byte short is refused.
    block.pop_back();
    EXPECT_EQ(Call(*channel, frames::kCmdPrivateKeyOp, Key(handle, keySpec, block)).status,
              kNteBadData);
  }
  // A container without keys, then without and with a certificate; a second one replaces it.
  uint32_t empty = Create(*channel, "empty");
  EXPECT_EQ(Call(*channel, frames::kCmdReadPublicKey, Key(empty, kAtSignature)).status, kNteNoKey);
  EXPECT_EQ(Call(*channel, frames::kCmdReadCertificate, Key(empty, kAtKeyExchange)).status,
            kNteNotFound);
  for (const ByteString& certificate :
       {Certificate("san_edipartyname.der"), Certificate("san_x400address.der")}) {
    ASSERT_FALSE(certificate.empty());
    ASSERT_EQ(Call(*channel, frames::kCmdWriteCertificate,
                   Key(handle, kAtKeyExchange, certificate)).status, 0u);
    EXPECT_EQ(Call(*channel, frames::kCmdReadCertificate, Key(handle, kAtKeyExchange)).response.data,
              certificate);
    EXPECT_EQ(NativeValue(CKO_CERTIFICATE, "keys_cspX", "value"), certificate);
  }
  EXPECT_EQ(NativeValue(CKO_CERTIFICATE, "keys_cspS", "value"), ByteString());
}

TEST_F(TokenTest, ImportedKeyBlobSignsLikeTheKeyItCameFrom) {
  // A PRIVATEKEYBLOB made from a key of the crypto library; the token's private operation must
  // give what that key's gives.
  frames::RsaOwner key;
  ASSERT_EQ(crypto::RsaGenerateNewKey(key.Out(), 1024, 65537), crypto::kOk);
  auto component = [&](uint32_t id, size_t length) {
    ByteString value(length);
    size_t size = length;
    EXPECT_EQ(crypto::RsaHandleExportKey(key.Get(), id, value.data(), &size), crypto::kOk);
    ByteString padded(length - size, 0);
    padded.insert(padded.end(), value.begin(), value.begin() + size);
    return ByteString(padded.rbegin(), padded.rend());  // little-endian
  };
  ByteString blob = {7, 2, 0, 0, 0x00, 0xA4, 0, 0, 'R', 'S', 'A', '2', 0, 4, 0, 0, 1, 0, 1, 0};
  for (auto [id, length] : {std::pair{crypto::kRsaComponentN, 128}, {crypto::kRsaComponentP, 64},
                            {crypto::kRsaComponentQ, 64}, {crypto::kRsaComponentDP, 64},
                            {crypto::kRsaComponentDQ, 64}, {crypto::kRsaComponentQInv, 64},
                            {crypto::kRsaComponentD, 128}}) {
    ByteString part = component(id, length);
    blob.insert(blob.end(), part.begin(), part.end());
  }
  auto channel = Open();
  Login(*channel);
  uint32_t handle = Create(*channel, "imported");
  EXPECT_EQ(Call(*channel, frames::kCmdImportKeyPair, Key(handle, kAtSignature, {1, 2, 3})).status,
            kNteBadData);
  ASSERT_EQ(Call(*channel, frames::kCmdImportKeyPair, Key(handle, kAtSignature, blob)).status, 0u);
  CardResult read = Call(*channel, frames::kCmdReadPublicKey, Key(handle, kAtSignature));
  ByteString modulus = component(crypto::kRsaComponentN, 128);
  EXPECT_EQ(read.response.publicKey.modulus, ByteString(modulus.rbegin(), modulus.rend()));
  ByteString block(128), expected(128);
  ASSERT_EQ(crypto::Pkcs1PadType1(block.data(), 128, blob.data(), 36), crypto::kOk);
  ASSERT_EQ(crypto::RsaHandlePrivate(key.Get(), block.data(), 128, expected.data(), nullptr), crypto::kOk);
  EXPECT_EQ(Call(*channel, frames::kCmdPrivateKeyOp, Key(handle, kAtSignature, block), 128).response.data,
            expected);
}

TEST_F(TokenTest, PinCommandsAnswerWithTheAgreedStatuses) {
  auto channel = Open();
  struct Step {
    const char* what;
    uint16_t command;
    std::string text, text2;
    uint32_t status, value;
  };
  const std::string newPin = "changed-pin-22";
  const Step steps[] = {
      {"wrong PIN", frames::kCmdVerifyPin, "nope", "", 0, 0},
      {"change with a wrong old PIN", frames::kCmdChangePin, "nope", newPin, kScardInvalidChv, 0},
      {"change", frames::kCmdChangePin, kUserPin, newPin, 0, 1},
      {"old PIN after the change", frames::kCmdVerifyPin, kUserPin, "", 0, 0},
      {"new PIN", frames::kCmdVerifyPin, newPin, "", 0, 1},
      {"unblock with a wrong administrator PIN", frames::kCmdUnblockPin, "nope", kUserPin,
       kScardInvalidChv, 0},
      {"unblock", frames::kCmdUnblockPin, kSoPin, kUserPin, 0, 1},
      {"PIN set by the unblock", frames::kCmdVerifyPin, kUserPin, "", 0, 1},
      {"initialise with a wrong administrator PIN", frames::kCmdInitToken, "nope", kUserPin,
       kScardInvalidChv, 0},
      {"token without a PIN pad", frames::kCmdInitTokenPlain, "", "", kNteBadFlags, 0},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(step.what);
    CardResult result = Text(*channel, step.command, step.text, step.text2);
    EXPECT_EQ(result.status, step.status);
    if (step.status == 0 && step.command != frames::kCmdInitToken) {
      EXPECT_EQ(result.response.value, step.value);
    }
  }
}

// A token whose user PIN locks after three wrong PINs.
class LockingTokenTest : public ServiceTest {
  std::string Module() override { return NIVRA_PIN_LOCK_MODULE; }
};

TEST_F(LockingTokenTest, WrongPinsAreRefusedUntilThePinIsBlocked) {
  auto channel = Open();
  for (int attempt = 1; attempt <= 3; ++attempt) {
    CardResult refused = Text(*channel, frames::kCmdVerifyPin, "wrong");
    EXPECT_EQ(refused.status, 0u) << attempt;
    EXPECT_EQ(refused.response.value, 0u) << attempt;
  }
  EXPECT_EQ(Text(*channel, frames::kCmdVerifyPin, kUserPin).status, kScardChvBlocked);
  EXPECT_EQ(Text(*channel, frames::kCmdUnblockPin, kSoPin, kUserPin).response.value, 1u);
  EXPECT_EQ(Call(*channel, frames::kCmdLoginState).response.value, 1u);
}

TEST_F(TokenTest, InitialisingTheTokenEmptiesItAndSetsTheUserPin) {
  auto channel = Open();
  Login(*channel);
  Create(*channel, "gone");
  EXPECT_EQ(Text(*channel, frames::kCmdInitToken, kSoPin, "fresh-pin-9").status, 0u);
  EXPECT_EQ(Call(*channel, frames::kCmdLoginState).response.value, 0u);
  EXPECT_EQ(Text(*channel, frames::kCmdVerifyPin, "fresh-pin-9").response.value, 1u);
  EXPECT_EQ(Text(*channel, frames::kCmdOpenContainer, "gone").status, kNteBadKeyset);
}

}  // namespace
}  // namespace nivra::cardtest
