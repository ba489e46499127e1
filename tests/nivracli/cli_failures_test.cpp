// What an administrator reads when an action cannot be done: the cause in words, the status code
// with its name, and an exit status of its own for each kind of failure.
#include <functional>
#include <string>

#include "cli_harness.h"

namespace nivracli_test {
namespace {

using CliFailures = CliTest;

TEST_F(CliFailures, EachCauseIsSaidInWordsWithItsOwnExitStatus) {
  const std::string name = Container();  // a container without keys
  Cli({"delete", name, "--card", card, "--pin", "1234"});
  ASSERT_EQ(Cli({"create", name, "--card", card, "--pin", "1234"}).status, 0);
  WriteText("data.txt", "data\n");
  struct Case {
    const char* what;
    std::function<void()> before;
    std::vector<std::string> args;
    int status;
    std::string message;
  };
  const std::vector<Case> cases = {
      {"wrong PIN", nullptr, {"sign", name, "--in", WinPath("data.txt"), "--out", WinPath("s"), "--card", card, "--pin", "9999"},
       6, "the card refused the PIN: SCARD_E_INVALID_CHV (0x8010002A): wrong PIN"},
      {"locked PIN", [this] { Control("force-login 0xA4"); },
       {"sign", name, "--in", WinPath("data.txt"), "--out", WinPath("s"), "--card", card, "--pin", "1234"},
       7, "the card refused the PIN: SCARD_W_CHV_BLOCKED (0x8010006C): the PIN is blocked"},
      {"unknown card", nullptr, {"list", "--card", "No such slot"},
       3, "card \"No such slot\" is not reachable (no such token slot, or no token in it)"},
      {"card taken out", [this] { Control("remove " + slotId); }, {"list"}, 3, "no card is reachable"},
      {"missing container", nullptr, {"export-key", "NoSuchContainer", "--card", card},
       4, "container \"NoSuchContainer\" is not on the card: NTE_BAD_KEYSET (0x80090016)"},
      {"existing container", nullptr, {"create", name, "--card", card, "--pin", "1234"},
       4, "container \"" + name + "\" already exists on the card: NTE_EXISTS (0x8009000F)"},
      {"missing key", nullptr, {"export-key", name, "--card", card},
       5, "the container holds no signature key pair: NTE_NO_KEY (0x8009000D)"},
      {"missing key for signing", nullptr,
       {"sign", name, "--in", WinPath("data.txt"), "--out", WinPath("s"), "--card", card, "--pin", "1234"},
       5, "signing on the card: NTE_NO_KEY (0x8009000D)"},
      {"unknown command", nullptr, {"frobnicate"}, 2, "unknown command \"frobnicate\""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    if (c.before) c.before();
    const Outcome run = Cli(c.args);
    Control("reset");
    EXPECT_EQ(run.status, c.status) << run.out << run.err;
    EXPECT_TRUE(Contains(run.err, "nivracli: " + c.message));
  }
  EXPECT_EQ(Cli({"delete", name, "--card", card, "--pin", "1234"}).status, 0);
}

// Changing, unblocking and resetting the PIN, each checked by logging in with pkcs11-tool.
TEST_F(CliFailures, PinsAreChangedUnblockedAndResetAsTheTokenSeesThem) {
  auto nativeLogin = [this](const std::string& pin) {
    return Native("pkcs11-tool --module /usr/lib/softhsm/libsofthsm2.so --login --pin " + pin + " -O", true).status;
  };
  ASSERT_EQ(Cli({"change-pin", "--old-pin", "1234", "--new-pin", "4321", "--card", card}).status, 0);
  EXPECT_EQ(nativeLogin("4321"), 0);
  EXPECT_NE(nativeLogin("1234"), 0);
  const Outcome wrongAdmin = Cli({"unblock-pin", "--so-pin", "0000", "--new-pin", "1234", "--card", card});
  EXPECT_EQ(wrongAdmin.status, 6);
  EXPECT_TRUE(Contains(wrongAdmin.err, "nivracli: unblocking the PIN: SCARD_E_INVALID_CHV (0x8010002A): wrong PIN"));
  ASSERT_EQ(Cli({"unblock-pin", "--so-pin", "5678", "--new-pin", "1234", "--card", card}).status, 0);
  EXPECT_EQ(nativeLogin("1234"), 0);
  // Resetting initialises the card: it is empty afterwards and the new PIN opens it.
  const std::string name = Container();
  ASSERT_EQ(Cli({"create", name, "--card", card, "--pin", "1234"}).status, 0);
  EXPECT_EQ(Cli({"reset-card", "--so-pin", "5678", "--new-pin", "1234", "--card", card}).status, 2);
  ASSERT_EQ(Cli({"reset-card", "--so-pin", "5678", "--new-pin", "1234", "--yes", "--card", card}).status, 0);
  EXPECT_EQ(nativeLogin("1234"), 0);
  EXPECT_EQ(Native("pkcs11-tool --module /usr/lib/softhsm/libsofthsm2.so --login --pin 1234 -O").out, "");
  EXPECT_TRUE(Contains(Cli({"list", "--card", card}).out, "0 container(s)"));
}

}  // namespace
}  // namespace nivracli_test
