// Names and short explanations of the status codes a CryptoAPI application meets with this
// provider, for messages a person can read, and the exit status each kind of failure gives.
#pragma once
#include <cstdint>
#include <string>

// Exit statuses of nivracli: one per kind of failure an administrator or a script acts on.
enum ExitStatus : int {
  kExitOk = 0,
  kExitFailed = 1,        // any other failure
  kExitUsage = 2,         // the command line is wrong
  kExitNoCard = 3,        // no card, or not the card that was named
  kExitNoContainer = 4,   // the container does not exist (or already exists, when creating)
  kExitNoKey = 5,         // the container holds no such key pair or certificate
  kExitWrongPin = 6,      // a PIN was refused
  kExitPinLocked = 7,     // the PIN is blocked
  kExitBadSignature = 8,  // a signature does not verify
};

// "NTE_BAD_KEYSET (0x80090016): the key container does not exist or cannot be opened".
std::string DescribeStatus(uint32_t code);

// The exit status that a failure with this status code gives.
ExitStatus ExitStatusFor(uint32_t code);
