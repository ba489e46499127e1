// The slot monitor: one background thread per process that keeps the slot table current.
//
// It blocks in C_WaitForSlotEvent and, for each event, refreshes the slot list and the reported
// slot's token state under the slot-table mutex. A module that cannot block (the wait answers
// CKR_FUNCTION_NOT_SUPPORTED) is polled instead, once a second: the slot list and every known
// slot's token state, as an event would. After any other failure the thread pauses 100 ms before
// waiting again, so it never spins. It ends when the module is finalised (the wait or the poll
// answers CKR_CRYPTOKI_NOT_INITIALIZED) or the back end is no longer initialised, and then sets
// monitorStopped.
#pragma once
#include "pkcs11/p11_status.h"

namespace nivra::pkcs11 {

constexpr unsigned kSlotPollIntervalMs = 1000;
constexpr unsigned kSlotEventRetryMs = 100;

// Starts the thread (its handle is closed at once; it is never joined). The caller has pinned
// the module that holds this code, so the thread can outlive every context.
Status StartSlotMonitor();

}  // namespace nivra::pkcs11
