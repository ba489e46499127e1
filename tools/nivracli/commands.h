// The actions of nivracli, one family per file; main() finds them by name.
#pragma once
#include <vector>

#include "cli_args.h"

namespace nivracli {

struct Command {
  const char* name;
  const char* usage;    // arguments after the name
  const char* summary;  // one line for --help
  int (*run)(const Args& args);
};

void AddCardCommands(std::vector<Command>* commands);         // list, create, delete, propagate
void AddKeyCommands(std::vector<Command>* commands);          // genkey, export-key, import-key
void AddCertificateCommands(std::vector<Command>* commands);  // import-cert, read-cert
void AddSignatureCommands(std::vector<Command>* commands);    // sign, verify
void AddMessageCommands(std::vector<Command>* commands);      // decrypt
void AddPinCommands(std::vector<Command>* commands);          // change-pin, unblock-pin, reset-card

}  // namespace nivracli
