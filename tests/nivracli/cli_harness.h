// Runs nivracli under Wine as an administrator would, in the Wine prefix and against the helper
// and SoftHSM2 token that cli_fixture_start.sh prepared, and checks its results with independent
// peers natively (OpenSSL, pkcs11-tool) and under Wine (store_probe: crypt32 and Wine's own
// software provider). The fixture's directories come from the environment that CTest sets:
// NIVRA_CLI_FIXTURE (fixture directory) and NIVRA_WINDOWS_BUILD (the Windows build tree).
#pragma once
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace nivracli_test {

struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
};

class CliTest : public ::testing::Test {
 protected:
  void SetUp() override;

  // nivracli with these arguments; paths given to it are Windows paths (WinPath).
  Outcome Cli(const std::vector<std::string>& args);
  // store_probe with these arguments.
  Outcome Probe(const std::vector<std::string>& args);
  // A native shell command with the token's SOFTHSM2_CONF; must exit 0 unless `mayFail`.
  Outcome Native(const std::string& command, bool mayFail = false);
  // A control command to the helper (see docs/testing.md); must be accepted.
  void Control(const std::string& command);

  std::string Path(const std::string& name) const;     // in this case's work directory
  std::string WinPath(const std::string& name) const;  // the same file as Wine names it
  void WriteText(const std::string& name, const std::string& text) const;
  std::string ReadText(const std::string& name) const;
  // A container name of this case.
  std::string Container(const std::string& suffix = "") const;
  // A short form of the case's name for certificate subjects (at most 64 characters in all).
  std::string Tag() const;
  // A certificate for `publicKeyPem` issued by the case's test CA (made on first use), PEM.
  void IssueCertificate(const std::string& publicKeyPem, const std::string& subject,
                        const std::string& certificatePem);
  // The card: the fixture token's slot name, as the PKCS#11 module describes it.
  std::string card;
  std::string slotId;  // its PKCS#11 slot identifier ("0x..."), for the helper's control commands

 private:
  Outcome Wine(const std::string& program, const std::vector<std::string>& args);
  std::string work_;
  std::string helper_;  // the helper's address
  std::string fixture_;
  std::string windowsBuild_;
};

// Whether `text` contains `part` (the text is shown when it does not).
::testing::AssertionResult Contains(const std::string& text, const std::string& part);

// The shell's single-quoted form of `word`.
std::string Quoted(const std::string& word);

}  // namespace nivracli_test
