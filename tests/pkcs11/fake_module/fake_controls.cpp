// The exported test controls (see fake_control.h).
#include "fake_state.h"

using namespace fake;

#define FAKE_EXPORT extern "C" __declspec(dllexport)

FAKE_EXPORT void __cdecl FakeP11Reset() {
  FAKE_CONTROL();
  ResetState(s);
}

FAKE_EXPORT void __cdecl FakeP11SetInitializeResult(CK_RV rv, int initialise) {
  FAKE_CONTROL();
  s.initializeResult = rv;
  s.initializeInitialises = initialise != 0;
}

FAKE_EXPORT void __cdecl FakeP11SetFunctionListResult(CK_RV rv) {
  FAKE_CONTROL();
  s.functionListResult = rv;
}

FAKE_EXPORT void __cdecl FakeP11SetSlots(uint32_t count, int blankDescriptions) {
  FAKE_CONTROL();
  s.sessions.clear();
  ReplaceSlots(s, count, blankDescriptions != 0);
}

FAKE_EXPORT void __cdecl FakeP11SetTokenPresent(uint32_t index, int present) {
  FAKE_CONTROL();
  if (index >= s.slots.size()) return;
  Slot& slot = s.slots[index];
  slot.tokenPresent = present != 0;
  if (!slot.tokenPresent) {
    // A removed token takes its sessions and its login with it.
    for (auto it = s.sessions.begin(); it != s.sessions.end();) {
      it = it->second.slot == slot.id ? s.sessions.erase(it) : std::next(it);
    }
    slot.token.userLoggedIn = slot.token.soLoggedIn = false;
  }
}

FAKE_EXPORT void __cdecl FakeP11SetSlotDescription(uint32_t index, const char* text) {
  FAKE_CONTROL();
  if (index < s.slots.size()) s.slots[index].description = std::string(text).substr(0, 64);
}

FAKE_EXPORT void __cdecl FakeP11SetStrictTemplates(int strict) {
  FAKE_CONTROL();
  s.strictTemplates = strict != 0;
}

FAKE_EXPORT void __cdecl FakeP11SetCreateResult(CK_OBJECT_CLASS objectClass, CK_RV rv) {
  FAKE_CONTROL();
  s.createResults[objectClass] = rv;
}

FAKE_EXPORT void __cdecl FakeP11SetWaitMode(uint32_t mode, CK_RV errorRv) {
  FAKE_CONTROL();
  s.waitMode = mode;
  s.waitError = errorRv;
}

FAKE_EXPORT void __cdecl FakeP11RaiseEvent(CK_SLOT_ID slot) {
  FAKE_CONTROL();
  s.events.push_back(slot);
  s.eventSignal.notify_all();
}

FAKE_EXPORT void __cdecl FakeP11SetLoginResult(CK_RV rv) {
  FAKE_CONTROL();
  s.loginResult = rv;
}

FAKE_EXPORT void __cdecl FakeP11SetDecryptResult(const uint8_t* bytes, uint32_t length) {
  FAKE_CONTROL();
  s.decryptResult.assign(bytes, bytes + (bytes != nullptr ? length : 0));
}

FAKE_EXPORT uint32_t __cdecl FakeP11CallCount(const char* name) {
  FAKE_CONTROL();
  auto it = s.calls.find(name);
  return it != s.calls.end() ? it->second : 0;
}

FAKE_EXPORT int __cdecl FakeP11Initialised() {
  FAKE_CONTROL();
  return s.initialised ? 1 : 0;
}
