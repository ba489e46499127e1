#include "pkcs11/slot_table.h"

#include <cstring>
#include <new>
#include <vector>

#include "pkcs11/backend_state.h"
#include "pkcs11/ckr_mapping.h"
#include "pkcs11/module_loader.h"
#include "pkcs11/remote_slots.h"
#include "pkcs11/slot_session.h"
#include "platform/named_mutex.h"

namespace nivra::pkcs11 {

using provider::kOk;

namespace {

constexpr wchar_t kSlotTableMutexName[] = L"MUTEX_NIVRA_CSP_G_Var_ArrP11Slot_";

HANDLE g_slotTableMutex = nullptr;

void ZeroRecord(P11Slot& record) { std::memset(static_cast<void*>(&record), 0, sizeof(record)); }

// Reads one new record from the module.
Status ReadNewRecord(CK_FUNCTION_LIST* p11, CK_SLOT_ID id, P11Slot& record) {
  record.remote = 0;
  CK_SLOT_INFO info{};
  CK_RV rv = p11->C_GetSlotInfo(id, &info);
  if (rv != CKR_OK) return MapCkrToError(rv);
  record.slotId = id;
  if (info.flags & CKF_TOKEN_PRESENT) {
    record.tokenPresent = 1;
    EnsureSlotSession(record);  // a token whose session will not open is still present
  }
  CopySlotName(record.name, info.slotDescription);
  return kOk;
}

bool NameMatches(const P11Slot& record, const char* key) {
  return std::strcmp(record.name, key) == 0;
}

P11Slot* SearchByName(SlotTable& table, const char* key) {
  for (uint32_t i = 0; i < table.count && i < kMaxSlots; ++i) {
    if (NameMatches(table.records[i], key)) return &table.records[i];
  }
  return nullptr;
}

}  // namespace

SlotTable& ModuleSlots() {
  static SlotTable table{};
  return table;
}

SlotTable& ActiveSlotTable() {
  RemoteSlotService* remote = ActiveRemoteSlots();
  return remote != nullptr ? remote->Table() : ModuleSlots();
}

HANDLE SlotTableMutex() { return g_slotTableMutex; }

HANDLE CreateSlotTableMutex() {
  if (g_slotTableMutex == nullptr) {
    g_slotTableMutex = platform::OpenOrCreateSharedMutex(kSlotTableMutexName);
  }
  return g_slotTableMutex;
}

void CopySlotName(char (&name)[kSlotNameChars + 1], const CK_UTF8CHAR (&description)[64]) {
  size_t length = kSlotNameChars;
  while (length > 0 && description[length - 1] == ' ') --length;
  std::memcpy(name, description, length);
  name[length] = '\0';
}

Status RefreshSlotList() {
  if (RemoteSlotService* remote = ActiveRemoteSlots()) return remote->RefreshSlotList();
  CK_FUNCTION_LIST* p11 = P11();
  if (p11 == nullptr) return provider::kNteFail;

  CK_ULONG count = 0;
  CK_RV rv = p11->C_GetSlotList(CK_FALSE, nullptr, &count);
  if (rv != CKR_OK) return MapCkrToError(rv);
  std::vector<CK_SLOT_ID> list;
  try {
    list.assign(count, 0);
  } catch (const std::bad_alloc&) {
    return provider::kNteNoMemory;
  }
  rv = p11->C_GetSlotList(CK_FALSE, list.data(), &count);
  if (rv != CKR_OK) return MapCkrToError(rv);
  const uint32_t newCount = count < kMaxSlots ? count : kMaxSlots;

  SlotTable& table = ModuleSlots();
  for (uint32_t i = table.count; i < newCount; ++i) ZeroRecord(table.records[i]);
  for (uint32_t i = table.count; i < newCount; ++i) {
    Status status = ReadNewRecord(p11, list[i], table.records[i]);
    if (status != kOk) return status;
  }
  table.count = newCount;
  return kOk;
}

Status RefreshSlotToken(P11Slot& slot, uint32_t* presentOut) {
  if (slot.remote) {
    RemoteSlotService* remote = RemoteSlots();
    return remote != nullptr ? remote->RefreshSlotToken(slot, presentOut) : provider::kNteFail;
  }
  CK_FUNCTION_LIST* p11 = P11();
  if (p11 == nullptr) return provider::kNteFail;
  CK_SLOT_INFO info{};
  CK_RV rv = p11->C_GetSlotInfo(slot.slotId, &info);
  if (rv != CKR_OK) return MapCkrToError(rv);
  const uint32_t wasPresent = slot.tokenPresent;
  const uint32_t present = (info.flags & CKF_TOKEN_PRESENT) ? 1 : 0;
  slot.tokenPresent = present;
  if (wasPresent && !present && Backend().initialised) {
    CloseSlotSession(slot);
    std::memset(slot.serial, 0, sizeof(slot.serial));
  } else if (!wasPresent && present) {
    ReadTokenSerial(slot);
    EnsureSlotSession(slot);
  }
  if (presentOut != nullptr) *presentOut = present;
  return kOk;
}

P11Slot* FindSlotByName(const char* name) {
  if (name == nullptr) return nullptr;
  platform::NamedMutexLock lock(SlotTableMutex());
  const size_t length = std::strlen(name);
  const char* key = length > kSlotNameChars ? name + (length - kSlotNameChars) : name;
  if (RemoteSlotService* remote = ActiveRemoteSlots()) return SearchByName(remote->Table(), key);
  RefreshSlotList();
  return SearchByName(ModuleSlots(), key);
}

}  // namespace nivra::pkcs11
