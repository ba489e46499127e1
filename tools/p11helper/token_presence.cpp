// Injected token removal and insertion, and the slot events they raise.
#include <algorithm>
#include <cstdio>

#include "tools/p11helper/dispatcher.h"

namespace nivra::p11helper {

bool Dispatcher::IsModuleSlot(CK_SLOT_ID slot) {
  CK_SLOT_INFO info;
  return !FindFakeSlot(slot) && module_->C_GetSlotInfo(slot, &info) == CKR_OK;
}

const FakeSlot* Dispatcher::FindFakeSlot(CK_SLOT_ID slot) const {
  for (const FakeSlot& fake : state_.fakeSlots)
    if (fake.id == slot) return &fake;
  return nullptr;
}

CK_RV Dispatcher::TokenAvailable(CK_SLOT_ID slot) const {
  if (FindFakeSlot(slot) || state_.removedTokens.count(slot)) return CKR_TOKEN_NOT_PRESENT;
  return CKR_OK;
}

void Dispatcher::QueueSlotEvent(CK_SLOT_ID slot) {
  if (!state_.slotEvents) return;
  for (auto& [id, client] : state_.clients) {
    std::deque<CK_SLOT_ID>& pending = client.pendingEvents;
    if (client.initialised && std::find(pending.begin(), pending.end(), slot) == pending.end())
      pending.push_back(slot);
  }
  eventsChanged_.notify_all();
}

std::string Dispatcher::RemoveToken(CK_SLOT_ID slot) {
  if (!state_.removedTokens.insert(slot).second) return "already removed";
  // The token is gone for every process: its sessions end in the module, and their numbers
  // answer CKR_DEVICE_REMOVED until they are closed.
  for (auto& [id, client] : state_.clients) {
    std::vector<CK_SESSION_HANDLE> closing;
    for (const auto& [session, sessionSlot] : client.sessions)
      if (sessionSlot == slot) closing.push_back(session);
    for (CK_SESSION_HANDLE session : closing) {
      ForgetSession(client, session);
      client.removedSessions[session] = slot;
    }
  }
  QueueSlotEvent(slot);
  return "removed";
}

std::string Dispatcher::InsertToken(CK_SLOT_ID slot) {
  if (state_.removedTokens.erase(slot) == 0) return "already present";
  // Sessions from before the removal stay invalid; they now answer as unknown handles.
  for (auto& [id, client] : state_.clients)
    for (auto it = client.removedSessions.begin(); it != client.removedSessions.end();)
      it = it->second == slot ? client.removedSessions.erase(it) : std::next(it);
  QueueSlotEvent(slot);
  return "inserted";
}

}  // namespace nivra::p11helper
