// Session and user calls. Each client sees only the sessions it opened; sessions of a removed
// token answer CKR_DEVICE_REMOVED.
#include "tools/p11helper/abi_widths.h"
#include "tools/p11helper/dispatch_support.h"
#include "tools/p11helper/dispatcher.h"

namespace nivra::p11helper {

using namespace p11wire;

HandleReply Dispatcher::OpenSession(ClientState& client, const OpenSessionRequest& request) {
  if (CK_RV rv = TokenAvailable(request.slot)) return StatusOnly<HandleReply>(rv);
  // Notification callbacks cannot cross the link; the caller's application pointer is not needed.
  CK_SESSION_HANDLE session = 0;
  CK_RV rv = module_->C_OpenSession(request.slot, request.flags, nullptr, nullptr, &session);
  if (rv != CKR_OK) return StatusOnly<HandleReply>(rv);
  if (!FitsWire(session)) {
    module_->C_CloseSession(session);
    return StatusOnly<HandleReply>(CKR_GENERAL_ERROR);
  }
  // The module may hand out again the number of a session that was closed at a removal.
  client.removedSessions.erase(session);
  client.sessions[session] = request.slot;
  HandleReply reply;
  reply.handle = static_cast<uint32_t>(session);
  return reply;
}

StatusReply Dispatcher::CloseSession(ClientState& client, const SessionRequest& request) {
  CK_RV rv = CheckSession(client, request.session);
  if (rv == CKR_DEVICE_REMOVED) {
    // Already closed in the module when its token went; the caller is tidying up.
    client.removedSessions.erase(request.session);
    return StatusOnly<StatusReply>(CKR_OK);
  }
  if (rv != CKR_OK) return StatusOnly<StatusReply>(rv);
  return StatusOnly<StatusReply>(ForgetSession(client, request.session));
}

StatusReply Dispatcher::CloseAllSessions(ClientState& client, const SlotRequest& request) {
  if (!FindFakeSlot(request.slot) && !IsModuleSlot(request.slot))
    return StatusOnly<StatusReply>(CKR_SLOT_ID_INVALID);
  // Only this client's sessions: the others belong to other processes.
  std::vector<CK_SESSION_HANDLE> closing;
  for (const auto& [session, slot] : client.sessions)
    if (slot == request.slot) closing.push_back(session);
  for (CK_SESSION_HANDLE session : closing) ForgetSession(client, session);
  for (auto it = client.removedSessions.begin(); it != client.removedSessions.end();)
    it = it->second == request.slot ? client.removedSessions.erase(it) : std::next(it);
  return StatusOnly<StatusReply>(CKR_OK);
}

SessionInfoReply Dispatcher::GetSessionInfo(ClientState& client, const SessionRequest& request) {
  if (CK_RV rv = CheckSession(client, request.session)) return StatusOnly<SessionInfoReply>(rv);
  CK_SESSION_INFO info;
  SessionInfoReply reply;
  reply.rv = static_cast<uint32_t>(module_->C_GetSessionInfo(request.session, &info));
  if (reply.rv != CKR_OK) return reply;
  reply.info.slotId = NarrowUlong(info.slotID);
  reply.info.state = NarrowUlong(info.state);
  reply.info.flags = NarrowUlong(info.flags);
  reply.info.deviceError = NarrowUlong(info.ulDeviceError);
  return reply;
}

StatusReply Dispatcher::Login(ClientState& client, const PinRequest& request) {
  if (CK_RV rv = CheckSession(client, request.session)) return StatusOnly<StatusReply>(rv);
  if (state_.userPinLocked && request.userType == CKU_USER) return StatusOnly<StatusReply>(CKR_PIN_LOCKED);
  CK_BYTE spare = 0;
  return StatusOnly<StatusReply>(module_->C_Login(request.session, request.userType,
                                                  OptionalPointer(request.pin, &spare),
                                                  request.pin.bytes.size()));
}

StatusReply Dispatcher::Logout(ClientState& client, const SessionRequest& request) {
  if (CK_RV rv = CheckSession(client, request.session)) return StatusOnly<StatusReply>(rv);
  return StatusOnly<StatusReply>(module_->C_Logout(request.session));
}

StatusReply Dispatcher::InitPin(ClientState& client, const PinRequest& request) {
  if (CK_RV rv = CheckSession(client, request.session)) return StatusOnly<StatusReply>(rv);
  CK_BYTE spare = 0;
  return StatusOnly<StatusReply>(module_->C_InitPIN(
      request.session, OptionalPointer(request.pin, &spare), request.pin.bytes.size()));
}

StatusReply Dispatcher::SetPin(ClientState& client, const SetPinRequest& request) {
  if (CK_RV rv = CheckSession(client, request.session)) return StatusOnly<StatusReply>(rv);
  CK_BYTE spareOld = 0;
  CK_BYTE spareNew = 0;
  return StatusOnly<StatusReply>(module_->C_SetPIN(
      request.session, OptionalPointer(request.oldPin, &spareOld), request.oldPin.bytes.size(),
      OptionalPointer(request.newPin, &spareNew), request.newPin.bytes.size()));
}

}  // namespace nivra::p11helper
