// Library, slot and token calls, with the helper's fake slots, removed tokens, forced
// C_Initialize results and injected slot events.
#include <chrono>
#include <cstdio>

#include "tools/p11helper/abi_widths.h"
#include "tools/p11helper/dispatch_support.h"
#include "tools/p11helper/dispatcher.h"

namespace nivra::p11helper {
namespace {

using namespace p11wire;

// How long a slot-event wait sleeps before it checks whether its connection is still there.
constexpr auto kWaitProbeInterval = std::chrono::milliseconds(250);

// The module's list (slots with a token only, if asked); false with `rv` set on failure.
bool ModuleSlots(CK_FUNCTION_LIST* module, bool tokenPresent, std::vector<CK_SLOT_ID>* out,
                 CK_RV* rv) {
  // The list can grow between the size query and the fetch; ask again then.
  for (int attempt = 0; attempt < 4; ++attempt) {
    CK_ULONG n = 0;
    *rv = module->C_GetSlotList(tokenPresent ? CK_TRUE : CK_FALSE, nullptr, &n);
    if (*rv != CKR_OK) return false;
    out->assign(n, 0);
    *rv = module->C_GetSlotList(tokenPresent ? CK_TRUE : CK_FALSE, out->data(), &n);
    if (*rv == CKR_BUFFER_TOO_SMALL) continue;
    if (*rv != CKR_OK) return false;
    out->resize(n);
    return true;
  }
  return false;
}

// Fills a list reply from `all` following the size-query protocol of the list calls.
ListReply ListAnswer(const std::vector<uint32_t>& all, const ListRequest& request) {
  ListReply reply;
  reply.count = static_cast<uint32_t>(all.size());
  if (request.wantList) {
    if (request.capacity < all.size())
      reply.rv = CKR_BUFFER_TOO_SMALL;
    else
      reply.ids = all;
  }
  return reply;
}

void PadText(const char* text, uint8_t* field, size_t size) {
  std::memset(field, ' ', size);
  std::memcpy(field, text, std::min(size, std::strlen(text)));
}

}  // namespace

StatusReply Dispatcher::Initialize(ClientState& client, const InitializeRequest& request) {
  state_.initializeArguments.push_back(request);
  // A module that cannot lock by itself refuses to be told that it may use the system's locks.
  if (state_.cantLock && request.hasArguments && !request.mutexFunctions &&
      (request.flags & CKF_OS_LOCKING_OK))
    return StatusOnly<StatusReply>(CKR_CANT_LOCK);
  const std::optional<ForcedInitialize>& forced = state_.forcedInitialize;
  if (forced && forced->leaveUninitialised) return StatusOnly<StatusReply>(forced->rv);
  if (client.initialised) return StatusOnly<StatusReply>(CKR_CRYPTOKI_ALREADY_INITIALIZED);
  client.initialised = true;
  client.pendingEvents.clear();
  return StatusOnly<StatusReply>(forced ? forced->rv : CKR_OK);
}

StatusReply Dispatcher::Finalize(ClientState& client) {
  client.initialised = false;
  client.generation++;
  client.pendingEvents.clear();
  CloseClientSessions(client);
  eventsChanged_.notify_all();
  return StatusOnly<StatusReply>(CKR_OK);
}

InfoReply Dispatcher::GetInfo() {
  CK_INFO info;
  InfoReply reply;
  reply.rv = static_cast<uint32_t>(module_->C_GetInfo(&info));
  if (reply.rv != CKR_OK) return reply;
  CopyVersion(info.cryptokiVersion, &reply.info.cryptokiVersion);
  CopyField(info.manufacturerID, reply.info.manufacturerId);
  reply.info.flags = NarrowUlong(info.flags);
  CopyField(info.libraryDescription, reply.info.libraryDescription);
  CopyVersion(info.libraryVersion, &reply.info.libraryVersion);
  return reply;
}

ListReply Dispatcher::GetSlotList(const ListRequest& request) {
  std::vector<CK_SLOT_ID> module;
  CK_RV rv;
  if (!ModuleSlots(module_, request.tokenPresent, &module, &rv)) return StatusOnly<ListReply>(rv);
  std::vector<uint32_t> all;
  for (CK_SLOT_ID id : module)
    if (!(request.tokenPresent && state_.removedTokens.count(id))) all.push_back(NarrowUlong(id));
  // Fake slots never hold a token.
  if (!request.tokenPresent)
    for (const FakeSlot& fake : state_.fakeSlots) all.push_back(NarrowUlong(fake.id));
  return ListAnswer(all, request);
}

SlotInfoReply Dispatcher::GetSlotInfo(const SlotRequest& request) {
  SlotInfoReply reply;
  if (const FakeSlot* fake = FindFakeSlot(request.slot)) {
    char description[64];
    std::snprintf(description, sizeof description, "Nivra test slot 0x%08lx", fake->id);
    PadText(fake->blankDescription ? "" : description, reply.info.slotDescription,
            sizeof reply.info.slotDescription);
    PadText("Nivra PKCS#11 helper", reply.info.manufacturerId, sizeof reply.info.manufacturerId);
    reply.info.flags = CKF_REMOVABLE_DEVICE;
    reply.info.hardwareVersion = {1, 0};
    reply.info.firmwareVersion = {1, 0};
    return reply;
  }
  CK_SLOT_INFO info;
  reply.rv = static_cast<uint32_t>(module_->C_GetSlotInfo(request.slot, &info));
  if (reply.rv != CKR_OK) return reply;
  if (state_.removedTokens.count(request.slot)) info.flags &= ~CKF_TOKEN_PRESENT;
  CopyField(info.slotDescription, reply.info.slotDescription);
  CopyField(info.manufacturerID, reply.info.manufacturerId);
  reply.info.flags = NarrowUlong(info.flags);
  CopyVersion(info.hardwareVersion, &reply.info.hardwareVersion);
  CopyVersion(info.firmwareVersion, &reply.info.firmwareVersion);
  return reply;
}

TokenInfoReply Dispatcher::GetTokenInfo(const SlotRequest& request) {
  if (CK_RV rv = TokenAvailable(request.slot)) return StatusOnly<TokenInfoReply>(rv);
  CK_TOKEN_INFO info;
  TokenInfoReply reply;
  reply.rv = static_cast<uint32_t>(module_->C_GetTokenInfo(request.slot, &info));
  if (reply.rv != CKR_OK) return reply;
  WireTokenInfo& out = reply.info;
  CopyField(info.label, out.label);
  CopyField(info.manufacturerID, out.manufacturerId);
  CopyField(info.model, out.model);
  CopyField(info.serialNumber, out.serialNumber);
  out.flags = NarrowUlong(info.flags);
  out.maxSessionCount = NarrowUlong(info.ulMaxSessionCount);
  out.sessionCount = NarrowUlong(info.ulSessionCount);
  out.maxRwSessionCount = NarrowUlong(info.ulMaxRwSessionCount);
  out.rwSessionCount = NarrowUlong(info.ulRwSessionCount);
  out.maxPinLen = NarrowUlong(info.ulMaxPinLen);
  out.minPinLen = NarrowUlong(info.ulMinPinLen);
  out.totalPublicMemory = NarrowUlong(info.ulTotalPublicMemory);
  out.freePublicMemory = NarrowUlong(info.ulFreePublicMemory);
  out.totalPrivateMemory = NarrowUlong(info.ulTotalPrivateMemory);
  out.freePrivateMemory = NarrowUlong(info.ulFreePrivateMemory);
  CopyVersion(info.hardwareVersion, &out.hardwareVersion);
  CopyVersion(info.firmwareVersion, &out.firmwareVersion);
  CopyField(info.utcTime, out.utcTime);
  return reply;
}

HandleReply Dispatcher::WaitForSlotEvent(Lock& lock, ClientState& client,
                                         const WaitForSlotEventRequest& request,
                                         const std::function<bool()>& peerGone) {
  if (!state_.slotEvents && state_.forcedWait) return StatusOnly<HandleReply>(*state_.forcedWait);
  if (!state_.slotEvents) {
    // The module's own answer. It may block, so the other clients must not wait for it.
    CK_SLOT_ID slot = 0;
    lock.unlock();
    CK_RV rv = module_->C_WaitForSlotEvent(request.flags, &slot, nullptr);
    lock.lock();
    HandleReply reply;
    reply.rv = static_cast<uint32_t>(rv);
    reply.handle = NarrowUlong(slot);
    return reply;
  }
  const uint64_t generation = client.generation;
  for (;;) {
    if (!client.initialised || client.generation != generation || state_.stopping)
      return StatusOnly<HandleReply>(CKR_CRYPTOKI_NOT_INITIALIZED);
    if (!state_.slotEvents) return StatusOnly<HandleReply>(CKR_FUNCTION_NOT_SUPPORTED);
    if (!client.pendingEvents.empty()) {
      HandleReply reply;
      reply.handle = NarrowUlong(client.pendingEvents.front());
      client.pendingEvents.pop_front();
      return reply;
    }
    if (request.flags & CKF_DONT_BLOCK) return StatusOnly<HandleReply>(CKR_NO_EVENT);
    eventsChanged_.wait_for(lock, kWaitProbeInterval);
    // Nobody will read the answer of a caller that went away.
    if (peerGone && peerGone()) return StatusOnly<HandleReply>(CKR_FUNCTION_CANCELED);
  }
}

ListReply Dispatcher::GetMechanismList(const ListRequest& request) {
  if (CK_RV rv = TokenAvailable(request.slot)) return StatusOnly<ListReply>(rv);
  CK_ULONG n = 0;
  CK_RV rv = module_->C_GetMechanismList(request.slot, nullptr, &n);
  if (rv != CKR_OK) return StatusOnly<ListReply>(rv);
  std::vector<CK_MECHANISM_TYPE> types(n);
  rv = module_->C_GetMechanismList(request.slot, types.data(), &n);
  if (rv != CKR_OK) return StatusOnly<ListReply>(rv);
  std::vector<uint32_t> all;
  for (CK_ULONG i = 0; i < n; ++i) all.push_back(NarrowUlong(types[i]));
  return ListAnswer(all, request);
}

MechanismInfoReply Dispatcher::GetMechanismInfo(const MechanismInfoRequest& request) {
  if (CK_RV rv = TokenAvailable(request.slot)) return StatusOnly<MechanismInfoReply>(rv);
  CK_MECHANISM_INFO info;
  MechanismInfoReply reply;
  reply.rv = static_cast<uint32_t>(module_->C_GetMechanismInfo(request.slot, request.mechanism, &info));
  if (reply.rv != CKR_OK) return reply;
  reply.info.minKeySize = NarrowUlong(info.ulMinKeySize);
  reply.info.maxKeySize = NarrowUlong(info.ulMaxKeySize);
  reply.info.flags = NarrowUlong(info.flags);
  return reply;
}

StatusReply Dispatcher::InitToken(const InitTokenRequest& request) {
  if (CK_RV rv = TokenAvailable(request.slot)) return StatusOnly<StatusReply>(rv);
  if (request.label.present && request.label.bytes.size() != 32)
    return StatusOnly<StatusReply>(CKR_ARGUMENTS_BAD);
  CK_BYTE spare = 0;
  CK_BYTE_PTR pin = OptionalPointer(request.soPin, &spare);
  CK_BYTE_PTR label = OptionalPointer(request.label, &spare);
  return StatusOnly<StatusReply>(module_->C_InitToken(request.slot, pin, request.soPin.bytes.size(), label));
}

}  // namespace nivra::p11helper
