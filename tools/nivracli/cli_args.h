// The command line of nivracli: a command, its positional words and --options.
#pragma once
#include <windows.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace nivracli {

struct Args {
  std::string command;
  std::vector<std::string> words;              // positional words after the command
  std::map<std::string, std::string> values;   // --name VALUE
  std::set<std::string> flags;                 // --name

  bool Has(const std::string& name) const { return values.count(name) != 0 || flags.count(name) != 0; }
  // The value of --name, or `fallback`.
  std::string Get(const std::string& name, const std::string& fallback = "") const;
  // The value of --name; a usage error when it is missing.
  std::string Need(const std::string& name) const;
  // The positional word `index`, named `what` in the usage error when it is missing.
  std::string Word(size_t index, const char* what) const;
  // --key-spec as a key spec (AT_SIGNATURE or AT_KEYEXCHANGE), `fallback` without it.
  DWORD KeySpec(DWORD fallback) const;
  // --card, the token slot's name ("" when none was named).
  std::string Card() const { return Get("card"); }
  std::string Provider() const;
};

// Splits argv. Options that take a value are listed in the parser; every other --name is a flag.
// A usage error is thrown (CliError) for a value option at the end of the line.
Args ParseArgs(int argc, char** argv);

// "signature" or "exchange".
const char* KeySpecName(DWORD keySpec);

}  // namespace nivracli
