// How an action of nivracli fails: a message in plain words and the exit status it gives.
#pragma once
#include <windows.h>

#include <string>

#include "status_names.h"

namespace nivracli {

struct CliError {
  std::string message;
  int exitStatus;
};

// Ends the action: "<what>: <status name> (<code>): <meaning>", exit status by the code.
[[noreturn]] void Fail(const std::string& what, DWORD code);
// Ends the action with GetLastError() as the code.
[[noreturn]] void FailLast(const std::string& what);
// Ends the action with a message of its own and an exit status.
[[noreturn]] void FailWith(const std::string& message, int exitStatus);
[[noreturn]] void UsageError(const std::string& message);

}  // namespace nivracli
