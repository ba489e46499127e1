// Native check of what the Windows tests did through nivrap11fwd.dll: the signature they got from
// the token verifies with OpenSSL. Runs after the Windows tests, on the results they left in the
// fixture directory named by NIVRA_P11FWD_FIXTURE.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/p11fwd/openssl_rsa_check.h"

namespace nivra::p11test {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes ReadArtefact(const std::string& name) {
  const char* dir = std::getenv("NIVRA_P11FWD_FIXTURE");
  std::ifstream in(std::string(dir ? dir : "") + "/" + name, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST(ForwardedResults, SignatureFromWineVerifiesWithOpenSsl) {
  Bytes modulus = ReadArtefact("modulus.bin");
  Bytes signature = ReadArtefact("signature.bin");
  ASSERT_EQ(modulus.size(), 256u) << "no results from the Windows tests";
  ASSERT_EQ(signature.size(), 256u);
  EXPECT_TRUE(OpenSslVerifiesSha256(modulus, ReadArtefact("exponent.bin"), {'a', 'b', 'c'}, signature));
  EXPECT_FALSE(OpenSslVerifiesSha256(modulus, ReadArtefact("exponent.bin"), {'a', 'b', 'd'}, signature));
}

}  // namespace
}  // namespace nivra::p11test
