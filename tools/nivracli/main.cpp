// nivracli: the administrator's command line for the Nivra pkcs11 CSP. Every action goes through
// public CryptoAPI (advapi32 and crypt32), the way applications reach the cards; failures are
// said in words with the status code, and the exit status tells what kind of failure it was.
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "cli_error.h"
#include "commands.h"

namespace {

using nivracli::Command;

std::vector<Command> AllCommands() {
  std::vector<Command> commands;
  nivracli::AddCardCommands(&commands);
  nivracli::AddKeyCommands(&commands);
  nivracli::AddCertificateCommands(&commands);
  nivracli::AddSignatureCommands(&commands);
  nivracli::AddMessageCommands(&commands);
  nivracli::AddPinCommands(&commands);
  return commands;
}

void PrintHelp(const std::vector<Command>& commands) {
  std::printf(
      "usage: nivracli COMMAND [ARGUMENTS] [--card NAME] [--pin PIN] [--silent] [--provider NAME]\n"
      "\n"
      "  --card NAME      the card: a token slot's name as the PKCS#11 module describes it\n"
      "                   (needed when several cards are reachable)\n"
      "  --pin PIN        the user PIN, presented before anything that needs it (else the\n"
      "                   provider asks in its PIN dialog)\n"
      "  --silent         never show a dialog; fail instead\n"
      "  --provider NAME  another provider (default \"Nivra pkcs11 CSP\")\n"
      "  --key-spec S         key spec: signature or exchange\n"
      "\ncommands:\n");
  for (const Command& c : commands) {
    std::printf("  %s %s\n      %s\n", c.name, c.usage, c.summary);
  }
  std::printf(
      "\nexit status: 0 done, 1 failed, 2 wrong command line, 3 no card, 4 no such container\n"
      "(or it exists already), 5 no such key or certificate, 6 wrong PIN, 7 PIN blocked,\n"
      "8 signature does not verify\n");
}

// Wine answers a call to a function it does not implement (its crypt32 8.0 has no
// CryptDecryptMessage) with this exception, naming the DLL and the function. Unhandled, it ends
// the program through the debugger with whatever exit status that leaves, now and then 0; the
// administrator gets the cause in words and a failure status instead.
constexpr DWORD kWineUnimplementedFunction = 0x80000100;

LONG CALLBACK SayUnimplementedFunction(EXCEPTION_POINTERS* exception) {
  const EXCEPTION_RECORD* record = exception->ExceptionRecord;
  if (record->ExceptionCode != kWineUnimplementedFunction || record->NumberParameters < 2 ||
      (record->ExceptionInformation[1] >> 16) == 0) {  // a function named by ordinal
    return EXCEPTION_CONTINUE_SEARCH;
  }
  std::fflush(stdout);
  std::fprintf(stderr, "nivracli: this system has no %s: unimplemented function %s.%s\n",
               reinterpret_cast<const char*>(record->ExceptionInformation[1]),
               reinterpret_cast<const char*>(record->ExceptionInformation[0]),
               reinterpret_cast<const char*>(record->ExceptionInformation[1]));
  std::fflush(stderr);
  ExitProcess(kExitFailed);
}

}  // namespace

int main(int argc, char** argv) {
  AddVectoredExceptionHandler(1, SayUnimplementedFunction);
  const std::vector<Command> commands = AllCommands();
  try {
    const nivracli::Args args = nivracli::ParseArgs(argc, argv);
    if (args.Has("help") || args.command == "help" || args.command.empty()) {
      PrintHelp(commands);
      return args.command.empty() && !args.Has("help") ? kExitUsage : kExitOk;
    }
    for (const Command& c : commands) {
      if (args.command == c.name) {
        const int status = c.run(args);
        std::fflush(stdout);
        return status;
      }
    }
    nivracli::UsageError("unknown command \"" + args.command + "\"");
  } catch (const nivracli::CliError& error) {
    std::fflush(stdout);
    std::fprintf(stderr, "nivracli: %s\n", error.message.c_str());
    return error.exitStatus;
  } catch (const std::invalid_argument&) {
    std::fprintf(stderr, "nivracli: a number on the command line is not a number\n");
    return kExitUsage;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "nivracli: %s\n", error.what());
    return kExitFailed;
  }
}
