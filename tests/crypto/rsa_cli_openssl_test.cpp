// The openssl command line takes our DER keys as they are written: it checks the private key,
// signs with it, and encrypts to the public key with OAEP; we verify and decrypt here.
#include <gtest/gtest.h>
#include <openssl/sha.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "crypto/digest_info.h"
#include "crypto/pkcs1.h"
#include "crypto/rsa_key.h"

namespace nivra::crypto {
namespace {

using Bytes = std::vector<uint8_t>;
namespace fs = std::filesystem;

class OpenSslCommandLine : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::path(::testing::TempDir()) / ("nivra_rsa_cli_" + std::to_string(getpid()));
    fs::create_directories(dir_);
    ASSERT_EQ(RsaGenerateKey(&key_, 1024, 65537), kOk);
    Write("key.der", Export(kRsaFormPrivate));
    Write("pub.der", Export(kRsaFormPublic));
  }
  void TearDown() override {
    RsaDestroyKey(key_);
    std::error_code ignored;
    fs::remove_all(dir_, ignored);
  }

  Bytes Export(uint32_t form) {
    size_t len = 0;
    EXPECT_EQ(RsaExportKey(key_, form, nullptr, &len), kOk);
    Bytes der(len);
    EXPECT_EQ(RsaExportKey(key_, form, der.data(), &len), kOk);
    return der;
  }
  std::string Path(const std::string& name) const { return (dir_ / name).string(); }
  void Write(const std::string& name, const Bytes& bytes) {
    std::ofstream out(Path(name), std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }
  Bytes Read(const std::string& name) {
    std::ifstream in(Path(name), std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  // Runs openssl with the arguments, in the test's folder; its exit status.
  int OpenSsl(const std::string& args) {
    std::string command = "cd '" + dir_.string() + "' && openssl " + args + " >openssl.log 2>&1";
    int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  fs::path dir_;
  CRSA* key_ = nullptr;
};

TEST_F(OpenSslCommandLine, ChecksSignsWithAndEncryptsToOurKeys) {
  ASSERT_EQ(OpenSsl("pkey -inform DER -in key.der -check -noout"), 0) << "key check";

  Bytes digest(SHA_DIGEST_LENGTH);
  const std::string message = "signed by the openssl command";
  SHA1(reinterpret_cast<const uint8_t*>(message.data()), message.size(), digest.data());
  Write("digest.bin", digest);
  ASSERT_EQ(OpenSsl("pkeyutl -sign -inkey key.der -keyform DER -in digest.bin "
                    "-pkeyopt digest:sha1 -out sig.bin"),
            0);
  const Bytes signature = Read("sig.bin");
  const size_t k = key_->ModulusBytes();
  ASSERT_EQ(signature.size(), k);
  Bytes block(k);
  ASSERT_EQ(RsaPublic(key_, signature.data(), k, block.data(), nullptr), kOk);
  const uint8_t* data = nullptr;
  size_t len = 0;
  ASSERT_EQ(Pkcs1UnpadType1(block.data(), k, &data, &len), kOk);
  Bytes info(64);
  size_t infoLen = 0;
  ASSERT_EQ(DigestInfoEncode(DigestAlgorithm::kSha1, digest.data(), digest.size(), info.data(),
                             info.size(), &infoLen),
            kOk);
  info.resize(infoLen);
  EXPECT_EQ(Bytes(data, data + len), info);

  const Bytes secret = {'s', 'e', 's', 's', 'i', 'o', 'n', ' ', 'k', 'e', 'y'};
  Write("secret.bin", secret);
  ASSERT_EQ(OpenSsl("pkeyutl -encrypt -pubin -inkey pub.der -keyform DER "
                    "-pkeyopt rsa_padding_mode:oaep -in secret.bin -out cipher.bin"),
            0);
  const Bytes cipher = Read("cipher.bin");
  ASSERT_EQ(cipher.size(), k);
  ASSERT_EQ(RsaPrivate(key_, cipher.data(), k, block.data(), nullptr), kOk);
  Bytes plain(k);
  size_t plainLen = plain.size();
  ASSERT_EQ(OaepDecode(plain.data(), &plainLen, block.data(), k), kOk);
  plain.resize(plainLen);
  EXPECT_EQ(plain, secret);
}

}  // namespace
}  // namespace nivra::crypto
