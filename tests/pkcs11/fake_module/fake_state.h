// The fake module's memory: slots with their tokens and objects, sessions, injected answers and
// call counters, all behind one lock.
#pragma once
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "fake_control.h"

namespace fake {

using Bytes = std::vector<uint8_t>;
using Object = std::map<CK_ATTRIBUTE_TYPE, Bytes>;

struct Token {
  std::string userPin = kFakeUserPin;
  std::string soPin = kFakeSoPin;
  bool userLoggedIn = false;
  bool soLoggedIn = false;
  CK_UTF8CHAR label[32];
  CK_CHAR serial[16];
  std::map<CK_OBJECT_HANDLE, Object> objects;
};

struct Slot {
  CK_SLOT_ID id = 0;
  std::string description;  // unpadded
  bool tokenPresent = false;
  Token token;
};

enum class Operation { kNone, kEncrypt, kDecrypt };

struct Session {
  CK_SLOT_ID slot = 0;
  bool searching = false;
  std::vector<CK_OBJECT_HANDLE> found;
  size_t cursor = 0;
  Operation operation = Operation::kNone;
  CK_OBJECT_HANDLE key = 0;
};

struct State {
  std::mutex lock;
  std::condition_variable eventSignal;
  bool initialised = false;
  uint64_t generation = 0;  // changes with every C_Finalize, so a blocked wait ends
  CK_RV initializeResult = CKR_OK;
  bool initializeInitialises = true;
  CK_RV functionListResult = CKR_OK;
  CK_RV loginResult = CKR_OK;
  bool strictTemplates = false;
  std::map<CK_ULONG, CK_RV> createResults;
  uint32_t waitMode = kFakeWaitNotSupported;
  CK_RV waitError = CKR_GENERAL_ERROR;
  std::deque<CK_SLOT_ID> events;
  Bytes decryptResult;
  std::vector<Slot> slots;
  std::map<CK_SESSION_HANDLE, Session> sessions;
  CK_ULONG nextHandle = 1;
  std::map<std::string, uint32_t> calls;
};

State& Fake();
void ResetState(State& state);
void ReplaceSlots(State& state, uint32_t count, bool blank);
// Counts a call; the caller holds the lock.
void Count(State& state, const char* name);
Slot* FindSlot(State& state, CK_SLOT_ID id);
// The session's slot, or null (closed session, or its token is gone).
Slot* SessionSlot(State& state, CK_SESSION_HANDLE session);
// The object a session may see: its token's, and private ones only after the user logged in.
Object* VisibleObject(State& state, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object);
void PadBlank(CK_UTF8CHAR* out, size_t size, const std::string& text);

}  // namespace fake

// The start of an entry: takes the lock for the rest of the call, counts the call and refuses
// it while the module is not initialised.
#define FAKE_ENTRY(name)                                   \
  std::unique_lock<std::mutex> entryLock(Fake().lock);     \
  State& s = Fake();                                       \
  Count(s, name);                                          \
  if (!s.initialised) return CKR_CRYPTOKI_NOT_INITIALIZED

// The start of a test control: the lock for the rest of the call.
#define FAKE_CONTROL()                                 \
  std::unique_lock<std::mutex> controlLock(Fake().lock); \
  State& s = Fake()

// The function list the module hands out.
CK_FUNCTION_LIST* FakeFunctionList();

// The entries of the function list, by concern.
void FillGeneralFunctions(CK_FUNCTION_LIST& list);
void FillSessionFunctions(CK_FUNCTION_LIST& list);
void FillObjectFunctions(CK_FUNCTION_LIST& list);
void FillCryptoFunctions(CK_FUNCTION_LIST& list);
