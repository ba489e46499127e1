// Raw RSA on SoftHSM2 through the helper, checked with OpenSSL: a key pair generated with the
// provider's templates signs a PKCS#1 block (CKM_RSA_X_509, through C_Sign and through C_Decrypt
// as the provider does), and the output-length protocol of single-part operations.
#include "tests/p11fwd/helper_harness.h"
#include "tests/p11fwd/openssl_rsa_check.h"
#include "tests/p11fwd/provider_templates.h"

namespace nivra::p11test {
namespace {

using p11wire::WireOp;

class HelperRsa : public SessionTest {
 protected:
  void SetUp() override {
    SessionTest::SetUp();
    p11wire::GenerateKeyPairRequest request;
    request.session = session_;
    request.mechanism.type = CKM_RSA_PKCS_KEY_PAIR_GEN;
    request.publicTemplate = ProviderPublicKeyTemplate("rsa_cspS", 2048);
    request.privateTemplate = ProviderPrivateKeyTemplate("rsa_cspS");
    auto pair = client_.Call<WireOp::kGenerateKeyPair>(request);
    ASSERT_EQ(pair.rv, CKR_OK);
    public_ = pair.publicKey;
    private_ = pair.privateKey;
    modulus_ = Attribute(CKA_MODULUS);
    exponent_ = Attribute(CKA_PUBLIC_EXPONENT);
    ASSERT_EQ(modulus_.size(), 256u);
  }
  void TearDown() override {
    client_.Call<WireOp::kDestroyObject>({session_, public_});
    client_.Call<WireOp::kDestroyObject>({session_, private_});
    SessionTest::TearDown();
  }

  Bytes Attribute(uint32_t type) {
    p11wire::TemplateRequest request;
    request.session = session_;
    request.object = public_;
    p11wire::WireAttribute query;
    query.type = type;
    request.attributes = {query};
    auto size = client_.Call<WireOp::kGetAttributeValue>(request);
    request.attributes[0].hasValue = true;
    request.attributes[0].length = size.attributes.at(0).length;
    return client_.Call<WireOp::kGetAttributeValue>(request).attributes.at(0).value;
  }

  p11wire::OperationInitRequest RawRsa(uint32_t key) {
    p11wire::OperationInitRequest init;
    init.session = session_;
    init.mechanism.type = CKM_RSA_X_509;
    init.key = key;
    return init;
  }

  p11wire::DataRequest Data(const Bytes& input, bool wantOutput, uint32_t capacity) {
    p11wire::DataRequest request;
    request.session = session_;
    request.data.present = true;
    request.data.bytes = input;
    request.wantOutput = wantOutput;
    request.capacity = capacity;
    return request;
  }

  uint32_t public_ = 0;
  uint32_t private_ = 0;
  Bytes modulus_;
  Bytes exponent_;
};

TEST_F(HelperRsa, RawSignatureVerifiesWithOpenSsl) {
  Bytes block = Sha256AbcSignatureBlock(256);
  ASSERT_EQ(client_.Call<WireOp::kSignInit>(RawRsa(private_)).rv, CKR_OK);
  auto size = client_.Call<WireOp::kSign>(Data(block, false, 0));
  ASSERT_EQ(size.rv, CKR_OK);
  EXPECT_EQ(size.length, 256u);
  auto small = client_.Call<WireOp::kSign>(Data(block, true, 255));
  EXPECT_EQ(small.rv, CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(small.length, 256u);
  EXPECT_FALSE(small.output.present);
  auto signature = client_.Call<WireOp::kSign>(Data(block, true, 300));
  ASSERT_EQ(signature.rv, CKR_OK);
  ASSERT_EQ(signature.output.bytes.size(), 256u);
  EXPECT_EQ(signature.length, 256u);

  EXPECT_TRUE(OpenSslVerifiesSha256(modulus_, exponent_, TextBytes("abc"), signature.output.bytes));
  EXPECT_FALSE(OpenSslVerifiesSha256(modulus_, exponent_, TextBytes("abd"), signature.output.bytes));
  EXPECT_EQ(OpenSslRawPublic(modulus_, exponent_, signature.output.bytes), block);
  // The operation ended with the signature.
  EXPECT_EQ(client_.Call<WireOp::kSign>(Data(block, true, 256)).rv, CKR_OPERATION_NOT_INITIALIZED);
}

TEST_F(HelperRsa, RawDecryptIsTheProvidersPrivateKeyOperation) {
  Bytes block = Sha256AbcSignatureBlock(256);
  ASSERT_EQ(client_.Call<WireOp::kDecryptInit>(RawRsa(private_)).rv, CKR_OK);
  auto result = client_.Call<WireOp::kDecrypt>(Data(block, true, 256));
  ASSERT_EQ(result.rv, CKR_OK);
  EXPECT_TRUE(OpenSslVerifiesSha256(modulus_, exponent_, TextBytes("abc"), result.output.bytes));

  // Raw encryption with the public key undoes it.
  ASSERT_EQ(client_.Call<WireOp::kEncryptInit>(RawRsa(public_)).rv, CKR_OK);
  auto back = client_.Call<WireOp::kEncrypt>(Data(result.output.bytes, true, 256));
  ASSERT_EQ(back.rv, CKR_OK);
  EXPECT_EQ(back.output.bytes, block);
}

TEST_F(HelperRsa, InputOfWrongLengthIsRefusedByTheToken) {
  ASSERT_EQ(client_.Call<WireOp::kDecryptInit>(RawRsa(private_)).rv, CKR_OK);
  auto result = client_.Call<WireOp::kDecrypt>(Data(Bytes(255, 0x01), true, 256));
  EXPECT_NE(result.rv, CKR_OK);
  EXPECT_FALSE(result.output.present);
}

TEST_F(HelperRsa, RandomBytesHaveTheRequestedLength) {
  p11wire::DataRequest request;
  request.session = session_;
  request.wantOutput = true;
  request.capacity = 48;
  auto first = client_.Call<WireOp::kGenerateRandom>(request);
  auto second = client_.Call<WireOp::kGenerateRandom>(request);
  ASSERT_EQ(first.rv, CKR_OK);
  ASSERT_EQ(first.output.bytes.size(), 48u);
  EXPECT_NE(first.output.bytes, second.output.bytes);
  request.capacity = (4u << 20) + 1;
  EXPECT_EQ(client_.Call<WireOp::kGenerateRandom>(request).rv, CKR_ARGUMENTS_BAD);
}

}  // namespace
}  // namespace nivra::p11test
