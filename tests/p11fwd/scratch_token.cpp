#include "tests/p11fwd/scratch_token.h"

#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <vector>

namespace nivra::p11test {
namespace {

// Runs a program with arguments, output discarded; true when it exits with 0.
bool RunQuietly(std::vector<std::string> args) {
  pid_t pid = fork();
  if (pid < 0) return false;
  if (pid == 0) {
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    freopen("/dev/null", "w", stdout);
    execvp(argv[0], argv.data());
    _exit(127);
  }
  int status = 0;
  return waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

ScratchToken::~ScratchToken() {
  std::error_code ignored;
  if (!directory_.empty()) std::filesystem::remove_all(directory_, ignored);
}

bool ScratchToken::Create(std::string* error) {
  std::string pattern = (std::filesystem::temp_directory_path() / "nivra-softhsm-XXXXXX").string();
  if (!mkdtemp(pattern.data())) {
    *error = "mkdtemp failed";
    return false;
  }
  directory_ = pattern;
  std::filesystem::create_directory(directory_ + "/tokens");
  std::string conf = directory_ + "/softhsm2.conf";
  {
    std::ofstream out(conf);
    out << "directories.tokendir = " << directory_ << "/tokens\n"
        << "objectstore.backend = file\nlog.level = ERROR\nslots.removable = false\n";
  }
  setenv("SOFTHSM2_CONF", conf.c_str(), 1);
  if (!RunQuietly({"softhsm2-util", "--init-token", "--free", "--label", kTokenLabel, "--pin",
                   kUserPin, "--so-pin", kSoPin})) {
    *error = "softhsm2-util --init-token failed";
    return false;
  }
  return true;
}

}  // namespace nivra::p11test
