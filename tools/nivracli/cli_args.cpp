#include "cli_args.h"

#include <windows.h>
#include <wincrypt.h>

#include <cstring>

#include "cli_error.h"

namespace nivracli {

namespace {

// Options followed by a value; every other --option is a flag.
const char* const kValueOptions[] = {"provider", "card", "pin", "key-spec", "bits", "format", "in",
                                     "out", "sig", "hash", "password", "old-pin", "new-pin",
                                     "so-pin"};

bool TakesValue(const std::string& name) {
  for (const char* option : kValueOptions) {
    if (name == option) return true;
  }
  return false;
}

}  // namespace

std::string Args::Get(const std::string& name, const std::string& fallback) const {
  auto it = values.find(name);
  return it != values.end() ? it->second : fallback;
}

std::string Args::Need(const std::string& name) const {
  auto it = values.find(name);
  if (it == values.end()) UsageError(command + " needs --" + name);
  return it->second;
}

std::string Args::Word(size_t index, const char* what) const {
  if (index >= words.size()) UsageError(command + " needs " + what);
  return words[index];
}

DWORD Args::KeySpec(DWORD fallback) const {
  const std::string keySpec = Get("key-spec");
  if (keySpec.empty()) return fallback;
  if (keySpec == "signature" || keySpec == "sig") return AT_SIGNATURE;
  if (keySpec == "exchange" || keySpec == "keyx" || keySpec == "exch") return AT_KEYEXCHANGE;
  UsageError("--key-spec is signature or exchange, not \"" + keySpec + "\"");
}

std::string Args::Provider() const { return Get("provider", "Nivra pkcs11 CSP"); }

Args ParseArgs(int argc, char** argv) {
  Args args;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word.rfind("--", 0) == 0 && word.size() > 2) {
      const std::string name = word.substr(2);
      if (!TakesValue(name)) {
        args.flags.insert(name);
      } else if (i + 1 < argc) {
        args.values[name] = argv[++i];
      } else {
        UsageError("--" + name + " needs a value");
      }
    } else if (args.command.empty()) {
      args.command = word;
    } else {
      args.words.push_back(word);
    }
  }
  return args;
}

const char* KeySpecName(DWORD keySpec) { return keySpec == AT_SIGNATURE ? "signature" : "exchange"; }

void Fail(const std::string& what, DWORD code) {
  throw CliError{what + ": " + DescribeStatus(code), ExitStatusFor(code)};
}

void FailLast(const std::string& what) { Fail(what, GetLastError()); }

void FailWith(const std::string& message, int exitStatus) { throw CliError{message, exitStatus}; }

void UsageError(const std::string& message) {
  throw CliError{message + " (nivracli --help lists the commands)", kExitUsage};
}

}  // namespace nivracli
