// Module, slot and token entries of the fake, and the exported C_GetFunctionList.
#include <cstring>

#include "fake_state.h"

using namespace fake;

namespace {

using Guard = std::unique_lock<std::mutex>;

CK_RV Initialize(void*) {
  State& s = Fake();
  Guard g(s.lock);
  Count(s, "C_Initialize");
  if (s.initialised) return CKR_CRYPTOKI_ALREADY_INITIALIZED;
  if (s.initializeInitialises) s.initialised = true;
  return s.initializeResult;
}

CK_RV Finalize(void*) {
  FAKE_ENTRY("C_Finalize");
  s.initialised = false;
  ++s.generation;
  s.sessions.clear();
  for (Slot& slot : s.slots) slot.token.userLoggedIn = slot.token.soLoggedIn = false;
  s.eventSignal.notify_all();
  return CKR_OK;
}

CK_RV GetSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID* list, CK_ULONG* count) {
  FAKE_ENTRY("C_GetSlotList");
  std::vector<CK_SLOT_ID> ids;
  for (const Slot& slot : s.slots) {
    if (!tokenPresent || slot.tokenPresent) ids.push_back(slot.id);
  }
  if (list == nullptr) {
    *count = static_cast<CK_ULONG>(ids.size());
    return CKR_OK;
  }
  if (*count < ids.size()) {
    *count = static_cast<CK_ULONG>(ids.size());
    return CKR_BUFFER_TOO_SMALL;
  }
  std::memcpy(list, ids.data(), ids.size() * sizeof(CK_SLOT_ID));
  *count = static_cast<CK_ULONG>(ids.size());
  return CKR_OK;
}

CK_RV GetSlotInfo(CK_SLOT_ID id, CK_SLOT_INFO* info) {
  FAKE_ENTRY("C_GetSlotInfo");
  Slot* slot = FindSlot(s, id);
  if (slot == nullptr) return CKR_SLOT_ID_INVALID;
  std::memset(info, 0, sizeof(*info));
  PadBlank(info->slotDescription, sizeof(info->slotDescription), slot->description);
  PadBlank(info->manufacturerID, sizeof(info->manufacturerID), "Nivra tests");
  info->flags = CKF_REMOVABLE_DEVICE | (slot->tokenPresent ? CKF_TOKEN_PRESENT : 0);
  return CKR_OK;
}

CK_RV GetTokenInfo(CK_SLOT_ID id, CK_TOKEN_INFO* info) {
  FAKE_ENTRY("C_GetTokenInfo");
  Slot* slot = FindSlot(s, id);
  if (slot == nullptr) return CKR_SLOT_ID_INVALID;
  if (!slot->tokenPresent) return CKR_TOKEN_NOT_PRESENT;
  std::memset(info, 0, sizeof(*info));
  std::memcpy(info->label, slot->token.label, sizeof(info->label));
  std::memcpy(info->serialNumber, slot->token.serial, sizeof(info->serialNumber));
  info->flags = CKF_LOGIN_REQUIRED | CKF_USER_PIN_INITIALIZED | CKF_TOKEN_INITIALIZED;
  return CKR_OK;
}

CK_RV InitToken(CK_SLOT_ID id, CK_UTF8CHAR* pin, CK_ULONG length, CK_UTF8CHAR* label) {
  FAKE_ENTRY("C_InitToken");
  Slot* slot = FindSlot(s, id);
  if (slot == nullptr) return CKR_SLOT_ID_INVALID;
  if (!slot->tokenPresent) return CKR_TOKEN_NOT_PRESENT;
  for (const auto& session : s.sessions) {
    if (session.second.slot == id) return CKR_SESSION_EXISTS;
  }
  if (length != 0 && std::string(reinterpret_cast<char*>(pin), length) != slot->token.soPin) {
    return CKR_PIN_INCORRECT;
  }
  std::memcpy(slot->token.label, label, sizeof(slot->token.label));
  slot->token.objects.clear();
  slot->token.userPin.clear();
  return CKR_OK;
}

CK_RV WaitForSlotEvent(CK_FLAGS, CK_SLOT_ID* slot, void*) {
  FAKE_ENTRY("C_WaitForSlotEvent");
  if (s.waitMode == kFakeWaitNotSupported) return CKR_FUNCTION_NOT_SUPPORTED;
  if (s.waitMode == kFakeWaitError) return s.waitError;
  const uint64_t generation = s.generation;
  s.eventSignal.wait(entryLock, [&] { return !s.events.empty() || s.generation != generation; });
  if (s.generation != generation || !s.initialised) return CKR_CRYPTOKI_NOT_INITIALIZED;
  *slot = s.events.front();
  s.events.pop_front();
  return CKR_OK;
}

CK_FUNCTION_LIST g_list{};

}  // namespace

void FillGeneralFunctions(CK_FUNCTION_LIST& list) {
  list.C_Initialize = Initialize;
  list.C_Finalize = Finalize;
  list.C_GetSlotList = GetSlotList;
  list.C_GetSlotInfo = GetSlotInfo;
  list.C_GetTokenInfo = GetTokenInfo;
  list.C_InitToken = InitToken;
  list.C_WaitForSlotEvent = WaitForSlotEvent;
}

CK_FUNCTION_LIST* FakeFunctionList() {
  if (g_list.C_Initialize == nullptr) {
    g_list.version = {2, 40};
    FillGeneralFunctions(g_list);
    FillSessionFunctions(g_list);
    FillObjectFunctions(g_list);
    FillCryptoFunctions(g_list);
  }
  return &g_list;
}

extern "C" CK_RV C_GetFunctionList(CK_FUNCTION_LIST** list) {
  State& s = Fake();
  {
    Guard g(s.lock);
    Count(s, "C_GetFunctionList");
    if (s.functionListResult != CKR_OK) return s.functionListResult;
  }
  *list = FakeFunctionList();
  return CKR_OK;
}
