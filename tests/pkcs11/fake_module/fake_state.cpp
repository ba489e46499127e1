#include "fake_state.h"

#include <cstdio>
#include <cstring>

namespace fake {

namespace {
Slot MakeSlot(uint32_t index, bool blank) {
  Slot slot;
  slot.id = kFakeFirstSlotId + index;
  if (!blank) slot.description = "Fake slot " + std::to_string(index);
  PadBlank(slot.token.label, sizeof(slot.token.label), "Fake token " + std::to_string(index));
  char serial[17];
  std::snprintf(serial, sizeof(serial), "FAKE%012u", index);
  std::memcpy(slot.token.serial, serial, sizeof(slot.token.serial));
  return slot;
}
}  // namespace

State& Fake() {
  // Never destroyed: at process exit a terminated thread may still count as waiting on the
  // state's condition variable, and destroying that can spin for ever.
  static State* state = [] {
    auto* created = new State;
    ResetState(*created);
    return created;
  }();
  return *state;
}

void ResetState(State& state) {
  state.initializeResult = CKR_OK;
  state.initializeInitialises = true;
  state.functionListResult = CKR_OK;
  state.loginResult = CKR_OK;
  state.strictTemplates = false;
  state.createResults.clear();
  state.waitMode = kFakeWaitNotSupported;
  state.waitError = CKR_GENERAL_ERROR;
  state.events.clear();
  state.decryptResult.clear();
  state.sessions.clear();
  state.calls.clear();
  state.slots.clear();
  state.slots.push_back(MakeSlot(0, false));
  state.slots.push_back(MakeSlot(1, false));
  state.slots[0].tokenPresent = true;
}

void ReplaceSlots(State& state, uint32_t count, bool blank) {
  state.slots.clear();
  for (uint32_t i = 0; i < count; ++i) state.slots.push_back(MakeSlot(i, blank));
}

void Count(State& state, const char* name) { ++state.calls[name]; }

Slot* FindSlot(State& state, CK_SLOT_ID id) {
  for (Slot& slot : state.slots) {
    if (slot.id == id) return &slot;
  }
  return nullptr;
}

Slot* SessionSlot(State& state, CK_SESSION_HANDLE session) {
  auto it = state.sessions.find(session);
  if (it == state.sessions.end()) return nullptr;
  Slot* slot = FindSlot(state, it->second.slot);
  return slot != nullptr && slot->tokenPresent ? slot : nullptr;
}

Object* VisibleObject(State& state, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
  Slot* slot = SessionSlot(state, session);
  if (slot == nullptr) return nullptr;
  auto it = slot->token.objects.find(object);
  if (it == slot->token.objects.end()) return nullptr;
  auto priv = it->second.find(CKA_PRIVATE);
  const bool isPrivate = priv != it->second.end() && !priv->second.empty() && priv->second[0];
  if (isPrivate && !slot->token.userLoggedIn) return nullptr;
  return &it->second;
}

void PadBlank(CK_UTF8CHAR* out, size_t size, const std::string& text) {
  std::memset(out, ' ', size);
  std::memcpy(out, text.data(), text.size() < size ? text.size() : size);
}

}  // namespace fake
