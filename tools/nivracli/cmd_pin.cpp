// The card's PINs: change the user PIN, unblock it with the administrator PIN, or initialise the
// card anew (which erases it) with a new user PIN.
#include <windows.h>
#include <wincrypt.h>

#include <cstdio>

#include "card_context.h"
#include "cli_error.h"
#include "commands.h"

namespace nivracli {

namespace {

// The card's own provider parameters for its PINs: each takes two NUL-terminated strings.
constexpr DWORD kChangePinParam = 22201;   // old user PIN, new user PIN
constexpr DWORD kUnblockPinParam = 22202;  // administrator PIN, new user PIN
constexpr DWORD kInitCardParam = 22203;    // administrator PIN, new user PIN

void SetPinPair(const Args& args, DWORD param, const std::string& first, const std::string& second,
                const char* what) {
  const std::string card = ChosenCard(args);
  Context ctx = OpenCard(args, card);
  std::string data = first + '\0' + second + '\0';
  const BOOL ok = CryptSetProvParam(ctx.get(), param, reinterpret_cast<const BYTE*>(data.data()), 0);
  const DWORD code = GetLastError();
  SecureZeroMemory(&data[0], data.size());
  if (!ok) Fail(what, code);
}

int ChangePin(const Args& args) {
  SetPinPair(args, kChangePinParam, args.Need("old-pin"), args.Need("new-pin"), "changing the PIN");
  std::printf("user PIN changed\n");
  return kExitOk;
}

int UnblockPin(const Args& args) {
  SetPinPair(args, kUnblockPinParam, args.Need("so-pin"), args.Need("new-pin"), "unblocking the PIN");
  std::printf("user PIN unblocked and set to the new PIN\n");
  return kExitOk;
}

int ResetCard(const Args& args) {
  if (!args.Has("yes")) {
    UsageError("reset-card erases every container, key and certificate on the card: confirm with --yes");
  }
  SetPinPair(args, kInitCardParam, args.Need("so-pin"), args.Need("new-pin"), "initialising the card");
  std::printf("card initialised anew: it is empty and its user PIN is the new PIN\n");
  return kExitOk;
}

}  // namespace

void AddPinCommands(std::vector<Command>* commands) {
  commands->push_back({"change-pin", "--old-pin OLD --new-pin NEW", "change the user PIN", ChangePin});
  commands->push_back({"unblock-pin", "--so-pin ADMIN --new-pin NEW",
                       "unblock the user PIN with the administrator PIN and set a new one", UnblockPin});
  commands->push_back({"reset-card", "--so-pin ADMIN --new-pin NEW --yes",
                       "reset the PIN by initialising the card anew (erases everything on it)",
                       ResetCard});
}

}  // namespace nivracli
