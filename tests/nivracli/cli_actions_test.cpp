// Each nivracli action on a SoftHSM2 token, its result checked by a peer that does not share the
// provider's code: OpenSSL and pkcs11-tool natively, crypt32 under Wine.
#include <cstdlib>
#include <string>

#include "cli_harness.h"

namespace nivracli_test {
namespace {

using CliActions = CliTest;

// A container with a key pair of each key spec (signature 2048 bits, exchange 1024 bits): listed,
// exported, signing what others verify; then its certificates reach applications through the
// user's store, and the key pairs sign and decrypt for them.
TEST_F(CliActions, KeyPairsAndTheirCertificatesServeOthers) {
  const std::string name = Container();
  Cli({"delete", name, "--card", card, "--pin", "1234"});
  ASSERT_EQ(Cli({"create", name, "--card", card, "--pin", "1234"}).status, 0);
  const Outcome generated = Cli({"genkey", name, "--key-spec", "signature", "--bits", "2048", "--card", card, "--pin", "1234"});
  ASSERT_EQ(generated.status, 0) << generated.err;
  EXPECT_TRUE(Contains(generated.out, "generating a 2048-bit signature key pair on the card"));
  ASSERT_EQ(Cli({"genkey", name, "--key-spec", "exchange", "--bits", "1024", "--card", card, "--pin", "1234"}).status, 0);
  const Outcome list = Cli({"list", "--card", card});
  ASSERT_EQ(list.status, 0) << list.err;
  EXPECT_TRUE(Contains(list.out, "container \"" + name + "\""));
  EXPECT_TRUE(Contains(list.out, "signature key  2048 bits"));
  EXPECT_TRUE(Contains(list.out, "exchange  key  1024 bits"));
  ASSERT_EQ(Cli({"export-key", name, "--format", "pem", "--out", WinPath("sig.pem"), "--card", card}).status, 0);
  ASSERT_EQ(Cli({"export-key", name, "--format", "blob", "--out", WinPath("sig.blob"), "--card", card}).status, 0);
  EXPECT_TRUE(Contains(Native("openssl pkey -pubin -in " + Quoted(Path("sig.pem")) + " -noout -text").out,
              "Public-Key: (2048 bit)"));
  WriteText("data.txt", "a file signed on the card\n");
  WriteText("other.txt", "another file\n");
  for (const std::string hash : {"sha1", "md5"}) {
    SCOPED_TRACE(hash);
    const std::string sig = hash + ".sig";
    ASSERT_EQ(Cli({"sign", name, "--hash", hash, "--in", WinPath("data.txt"), "--out", WinPath(sig), "--card", card,
                   "--pin", "1234"}).status, 0);
    Native("openssl dgst -" + hash + " -verify " + Quoted(Path("sig.pem")) + " -signature " +
           Quoted(Path(sig)) + " " + Quoted(Path("data.txt")));
    EXPECT_EQ(Cli({"verify", name, "--hash", hash, "--in", WinPath("data.txt"), "--sig", WinPath(sig), "--card",
                   card}).status, 0);
    const Outcome wrong = Cli({"verify", name, "--hash", hash, "--in", WinPath("other.txt"), "--sig", WinPath(sig),
                           "--card", card});
    EXPECT_EQ(wrong.status, 8);
    EXPECT_TRUE(Contains(wrong.err, "NTE_BAD_SIGNATURE (0x80090006): the signature does not verify"));
  }
  // OpenSSL reads the exported PUBLICKEYBLOB as the same key as the PEM export.
  EXPECT_EQ(Native("openssl rsa -pubin -inform MSBLOB -in " + Quoted(Path("sig.blob")) + " -pubout").out,
            ReadText("sig.pem"));

  ASSERT_EQ(Cli({"export-key", name, "--key-spec", "exchange", "--out", WinPath("xch.pem"), "--card", card}).status, 0);
  const std::string signer = "/CN=" + Tag() + " signer", recipient = "/CN=" + Tag() + " recipient";
  IssueCertificate("sig.pem", signer, "sig-cert.pem");
  IssueCertificate("xch.pem", recipient, "xch-cert.pem");
  Native("openssl x509 -in " + Quoted(Path("xch-cert.pem")) + " -outform DER -out " + Quoted(Path("xch-cert.der")));
  // One certificate as PEM, one as DER; each read back and compared by OpenSSL.
  struct Case {
    const char* keySpec;
    const char* file;
    const char* expected;
  };
  for (const Case& c : {Case{"signature", "sig-cert.pem", "sig-cert.pem"}, Case{"exchange", "xch-cert.der", "xch-cert.pem"}}) {
    SCOPED_TRACE(c.keySpec);
    const Outcome stored = Cli({"import-cert", name, "--key-spec", c.keySpec, "--in", WinPath(c.file), "--card", card, "--pin", "1234"});
    ASSERT_EQ(stored.status, 0) << stored.err;
    EXPECT_TRUE(Contains(stored.out, "put into the user's \"MY\" store (1 added"));
    ASSERT_EQ(Cli({"read-cert", name, "--key-spec", c.keySpec, "--out", WinPath("back.pem"), "--card", card}).status, 0);
    EXPECT_EQ(Native("openssl x509 -in " + Quoted(Path("back.pem")) + " -outform DER | sha1sum").out,
              Native("openssl x509 -in " + Quoted(Path(c.expected)) + " -outform DER | sha1sum").out);
  }
  // CertFindCertificateInStore finds the certificate; CryptAcquireCertificatePrivateKey reaches
  // this provider and the container on the card.
  const std::string containerString = "\\\\.\\" + card + "\\" + name;
  const Outcome found = Probe({"find", Tag() + " signer"});
  ASSERT_EQ(found.status, 0) << found.out;
  EXPECT_TRUE(Contains(found.out, "link provider=Nivra pkcs11 CSP container=" + containerString + " keySpec=2"));
  EXPECT_TRUE(Contains(found.out, "acquired provider=Nivra pkcs11 CSP container=" + name + " keySpec=2"));

  // A detached CMS signature made by CryptSignMessage with that certificate; OpenSSL verifies it.
  WriteText("data.txt", "signed through crypt32\n");
  const Outcome cms = Cli({"sign", name, "--cms", "--in", WinPath("data.txt"), "--out", WinPath("data.p7s"), "--card", card,
                       "--pin", "1234"});
  ASSERT_EQ(cms.status, 0) << cms.err;
  EXPECT_TRUE(Contains(cms.out, "using the certificate from the user's \"MY\" store"));
  Native("openssl cms -verify -binary -inform DER -in " + Quoted(Path("data.p7s")) + " -content " +
         Quoted(Path("data.txt")) + " -CAfile " + Quoted(Path("ca.pem")) + " -purpose any -out /dev/null");
  EXPECT_EQ(Cli({"verify", "--cms", "--in", WinPath("data.txt"), "--sig", WinPath("data.p7s")}).status, 0);

  // A file that OpenSSL enveloped for the exchange certificate (RSA PKCS#1 v1.5 key transport,
  // 3DES) is opened through the card.
  WriteText("secret.txt", std::string(1000, 's') + " for the card holder only\n");
  Native("openssl cms -encrypt -des3 -binary -in " + Quoted(Path("secret.txt")) + " -outform DER -out " +
         Quoted(Path("secret.p7m")) + " " + Quoted(Path("xch-cert.pem")));
  const Outcome opened = Cli({"decrypt", "--in", WinPath("secret.p7m"), "--out", WinPath("opened.txt"), "--card", card,
                          "--pin", "1234"});
  ASSERT_EQ(opened.status, 0) << opened.out << opened.err;
  EXPECT_EQ(ReadText("opened.txt"), ReadText("secret.txt"));
  // The same through CryptDecryptMessage itself: Wine's crypt32 has only a stub, said in words.
  // (When this changes, the direct call can become the default under Wine too.)
  const Outcome direct = Cli({"decrypt", "--decrypt-message", "--in", WinPath("secret.p7m"), "--out",
                              WinPath("direct.txt"), "--card", card, "--pin", "1234"});
  EXPECT_EQ(direct.status, 1);
  EXPECT_TRUE(Contains(direct.err, "nivracli: this system has no CryptDecryptMessage: unimplemented function crypt32.dll"));

  // A certificate another program put into "MY" stays; the container's go with it.
  Native("openssl x509 -in " + Quoted(Path("ca.pem")) + " -outform DER -out " + Quoted(Path("ca.der")));
  ASSERT_EQ(Probe({"add-foreign", WinPath("ca.der")}).status, 0);
  ASSERT_EQ(Cli({"delete", name, "--card", card, "--pin", "1234"}).status, 0);
  EXPECT_TRUE(Contains(Cli({"propagate"}).out, "2 removed"));
  EXPECT_EQ(Probe({"find", Tag() + " signer"}).out, "not found\n");
  EXPECT_EQ(Probe({"find", Tag() + " recipient"}).out, "not found\n");
  EXPECT_NE(Probe({"find", "Test CA " + Tag()}).out, "not found\n");
}

TEST_F(CliActions, PrivateKeysAreImportedFromTheirUsualFiles) {
  const std::string name = Container();
  Cli({"delete", name, "--card", card, "--pin", "1234"});
  ASSERT_EQ(Cli({"create", name, "--card", card, "--pin", "1234"}).status, 0);
  Native("openssl genrsa -traditional -out " + Quoted(Path("pkcs1.pem")) + " 2048");
  // A 1024-bit key whose first CRT exponent has a leading zero byte, the shape that Wine's
  // PKCS#12 import leaves half-copied (random keys have it about once in fifty).
  Native("cp " + Quoted(std::string(std::getenv("NIVRA_CLI_DATA")) + "/short_crt_exponent_key.pem") + " " +
         Quoted(Path("pkcs8.pem")));
  Native("openssl req -x509 -new -key " + Quoted(Path("pkcs8.pem")) + " -subj '/CN=" + Tag() +
         " from p12' -days 30 -out " + Quoted(Path("p12-cert.pem")));
  Native("openssl pkcs12 -export -inkey " + Quoted(Path("pkcs8.pem")) + " -in " + Quoted(Path("p12-cert.pem")) +
         " -passout pass:secret -keypbe PBE-SHA1-3DES -certpbe PBE-SHA1-3DES -macalg sha1 -out " +
         Quoted(Path("key.p12")));
  WriteText("data.txt", "signed with an imported key\n");
  struct Case {
    const char* file;
    const char* key;
    const char* password;
  };
  for (const Case& c : {Case{"pkcs1.pem", "pkcs1.pem", ""}, Case{"pkcs8.pem", "pkcs8.pem", ""},
                        Case{"key.p12", "pkcs8.pem", "secret"}}) {
    SCOPED_TRACE(c.file);
    const Outcome imported = Cli({"import-key", name, "--key-spec", "signature", "--in", WinPath(c.file), "--card", card,
                                  "--pin", "1234", "--password", c.password});
    ASSERT_EQ(imported.status, 0) << imported.err;
    ASSERT_EQ(Cli({"sign", name, "--in", WinPath("data.txt"), "--out", WinPath("data.sig"), "--card", card, "--pin",
                   "1234"}).status, 0);
    Native("openssl pkey -in " + Quoted(Path(c.key)) + " -pubout -out " + Quoted(Path("key.pub")));
    Native("openssl dgst -sha1 -verify " + Quoted(Path("key.pub")) + " -signature " + Quoted(Path("data.sig")) + " " +
           Quoted(Path("data.txt")));
  }
  // The PKCS#12 file's certificate came along with its key.
  ASSERT_EQ(Cli({"read-cert", name, "--key-spec", "signature", "--out", WinPath("back.pem"), "--card", card}).status, 0);
  EXPECT_EQ(Native("openssl x509 -in " + Quoted(Path("back.pem")) + " -outform DER | sha1sum").out,
            Native("openssl x509 -in " + Quoted(Path("p12-cert.pem")) + " -outform DER | sha1sum").out);
  Cli({"delete", name, "--card", card, "--pin", "1234"});
}

}  // namespace
}  // namespace nivracli_test
