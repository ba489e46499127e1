#pragma once
// The helper's control commands: one line of words, answered with a status and a text.
//
//   ping                        answers "pong"
//   reset                       drops every injected condition below, forgets the C_Initialize
//                               arguments and zeroes the counters
//   add-slots <n> [blank]       adds n fake slots without a token (blank: descriptions of blanks
//                               only); answers their identifiers
//   force-init <rv> [noinit]    C_Initialize answers <rv> from now on; noinit: without
//                               initialising the caller
//   force-init off              C_Initialize answers normally again
//   vendor-class on|off         on: objects of vendor-defined classes are kept as marked data
//                               objects and shown with their class; off: the module answers
//                               them (reset restores the setting the helper started with)
//   refuse-vendor-class <rv>    creating an object of a vendor-defined class answers <rv>
//                               (non-zero), as tokens that refuse such classes do, each with its
//                               own code; "off" ends it
//   cant-lock on|off            on: C_Initialize told CKF_OS_LOCKING_OK without mutex functions
//                               answers CKR_CANT_LOCK (as a module that cannot lock)
//   init-args                   every C_Initialize argument since the start or the last reset,
//                               one line each: "null", or "flags=0x.. mutexes|no-mutexes"
//   force-login <rv>|off        C_Login answers <rv> without asking the module / normally again
//   force-wait <rv>|off         C_WaitForSlotEvent answers <rv> at once while slot events are off
//                               / the module answers it again
//   remove <slot>               takes the token out of a module slot
//   insert <slot>               puts it back
//   slot-events on|off          on: C_WaitForSlotEvent waits for injected events (removal,
//                               insertion, "event"); off: the module answers it
//   event <slot>                raises a slot event without changing the slot
//   count <C_Name>              the number of forwarded calls of that function
//   counts                      every non-zero count, one "C_Name=n" per line
//   reset-counts                zeroes the counters
//   slots                       one line per slot: identifier, "module" or "fake", and for
//                               module slots "present", "empty" or "removed"
//   stop                        ends the helper
//
// Numbers are decimal or 0x-prefixed hexadecimal. A refused command answers CKR_ARGUMENTS_BAD
// (unknown or malformed) or CKR_SLOT_ID_INVALID (a slot that cannot take the command).
#include <cstdint>
#include <string>
#include <vector>

namespace nivra::p11helper {

// The words of a command line, split at blanks.
std::vector<std::string> SplitControlWords(const std::string& line);

// A decimal or 0x-prefixed hexadecimal number of at most 64 bits; false for anything else.
bool ParseControlNumber(const std::string& word, uint64_t* value);

}  // namespace nivra::p11helper
