#include "cli_harness.h"

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace nivracli_test {

namespace {

std::string Env(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace

::testing::AssertionResult Contains(const std::string& text, const std::string& part) {
  if (text.find(part) != std::string::npos) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "\"" << part << "\" not in:\n" << text;
}

std::string Quoted(const std::string& word) {
  std::string quoted = "'";
  for (char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

void CliTest::SetUp() {
  fixture_ = Env("NIVRA_CLI_FIXTURE");
  windowsBuild_ = Env("NIVRA_WINDOWS_BUILD");
  ASSERT_FALSE(fixture_.empty() || windowsBuild_.empty())
      << "run through CTest (NIVRA_CLI_FIXTURE and NIVRA_WINDOWS_BUILD are not set)";
  const std::string port = Slurp(fixture_ + "/helper/port");
  ASSERT_FALSE(port.empty()) << "the fixture's helper is not running";
  helper_ = "127.0.0.1:" + port.substr(0, port.find_first_of("\r\n"));
  setenv("WINEPREFIX", (fixture_ + "/wineprefix").c_str(), 1);
  setenv("WINEDEBUG", "-all", 1);
  setenv("WINEDLLOVERRIDES", "mscoree,mshtml=", 1);
  setenv("NIVRA_P11_HELPER", helper_.c_str(), 1);
  setenv("SOFTHSM2_CONF", (fixture_ + "/helper/softhsm2.conf").c_str(), 1);
  work_ = fixture_ + "/work/" + ::testing::UnitTest::GetInstance()->current_test_info()->name();
  ASSERT_EQ(std::system(("rm -rf " + Quoted(work_) + " && mkdir -p " + Quoted(work_)).c_str()), 0);
  Control("reset");
  // The slot whose token is the fixture's ("nivra-fwd"): its identifier and description.
  const Outcome slot = Native("pkcs11-tool --module /usr/lib/softhsm/libsofthsm2.so -L | awk '/^Slot /{id = substr($3, 2, "
                              "length($3) - 3); d = substr($0, index($0, \"): \") + 3); sub(/ +$/, \"\", d)} "
                              "/token label/ && /nivra-fwd/{print id; print d}'");
  slotId = slot.out.substr(0, slot.out.find('\n'));
  card = slot.out.substr(slotId.size() + 1, slot.out.find('\n', slotId.size() + 1) - slotId.size() - 1);
  ASSERT_FALSE(card.empty()) << slot.out;
}

Outcome CliTest::Cli(const std::vector<std::string>& args) { return Wine("nivracli.exe", args); }

Outcome CliTest::Probe(const std::vector<std::string>& args) { return Wine("nivracli_store_probe.exe", args); }

// Without address-space randomisation: now and then Wine cannot start a program because the
// randomised layout already holds the address of its shared user data ("failed to map the
// shared user data"), which shows as exit status 1 with nothing said (WINEDEBUG=-all).
Outcome CliTest::Wine(const std::string& program, const std::vector<std::string>& args) {
  std::string command = "setarch x86_64 -R wine " + Quoted(windowsBuild_ + "/" + program);
  for (const std::string& a : args) command += " " + Quoted(a);
  return Native(command, true);
}

Outcome CliTest::Native(const std::string& command, bool mayFail) {
  const std::string out = work_ + ".out", err = work_ + ".err";
  const int raw = std::system(("(" + command + ") >" + Quoted(out) + " 2>" + Quoted(err) + " </dev/null").c_str());
  Outcome run{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, Slurp(out), Slurp(err)};
  // Windows programs end their lines with CR LF.
  for (std::string* text : {&run.out, &run.err}) text->erase(std::remove(text->begin(), text->end(), '\r'), text->end());
  if (!mayFail) {
    EXPECT_EQ(run.status, 0) << command << "\n" << run.out << run.err;
  }
  return run;
}

void CliTest::Control(const std::string& command) { Native(Quoted(Env("NIVRA_HELPER")) + " --ctl " + helper_ + " " + command); }

std::string CliTest::Path(const std::string& name) const { return work_ + "/" + name; }

std::string CliTest::WinPath(const std::string& name) const { return "Z:" + Path(name); }

void CliTest::WriteText(const std::string& name, const std::string& text) const {
  std::ofstream(Path(name), std::ios::binary) << text;
}

std::string CliTest::ReadText(const std::string& name) const { return Slurp(Path(name)); }

std::string CliTest::Container(const std::string& suffix) const {
  return std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) + suffix;
}

std::string CliTest::Tag() const { return Container().substr(0, 24); }

void CliTest::IssueCertificate(const std::string& publicKeyPem, const std::string& subject,
                               const std::string& certificatePem) {
  if (ReadText("ca.pem").empty()) {
    Native("openssl req -x509 -newkey rsa:2048 -nodes -keyout " + Quoted(Path("ca.key")) + " -out " +
           Quoted(Path("ca.pem")) + " -subj " + Quoted("/CN=Test CA " + Tag()) + " -days 30");
  }
  Native("openssl req -new -key " + Quoted(Path("ca.key")) + " -subj " + Quoted(subject) + " | openssl x509 -req -CA " +
         Quoted(Path("ca.pem")) + " -CAkey " + Quoted(Path("ca.key")) + " -set_serial " +
         std::to_string(std::rand() % 100000 + 2) + " -force_pubkey " + Quoted(Path(publicKeyPem)) + " -days 30 -out " +
         Quoted(Path(certificatePem)));
}

}  // namespace nivracli_test
