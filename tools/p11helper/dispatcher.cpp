#include "tools/p11helper/dispatcher.h"

#include "tools/p11wire/wire_shapes.h"

namespace nivra::p11helper {
namespace {

using p11wire::WireOp;

// Decodes the request of `op`, refuses calls of an uninitialised client (every call but
// C_Initialize), runs `fn` and encodes its reply.
template <WireOp op, class Fn>
std::vector<uint8_t> Serve(const std::vector<uint8_t>& body, bool initialised, Fn&& fn) {
  typename p11wire::WireShape<op>::Request request;
  typename p11wire::WireShape<op>::Reply reply;
  if (!p11wire::DecodeBody(body, &request))
    reply.rv = CKR_ARGUMENTS_BAD;
  else if (!initialised && op != WireOp::kInitialize)
    reply.rv = CKR_CRYPTOKI_NOT_INITIALIZED;
  else
    reply = fn(request);
  return p11wire::EncodeBody(reply);
}

}  // namespace

void Dispatcher::Attach(uint64_t clientId) {
  Lock lock(mutex_);
  state_.clients[clientId].connections++;
}

void Dispatcher::Detach(uint64_t clientId) {
  Lock lock(mutex_);
  auto it = state_.clients.find(clientId);
  if (it == state_.clients.end() || --it->second.connections > 0) return;
  CloseClientSessions(it->second);
  state_.clients.erase(it);
}

void Dispatcher::Stop() {
  Lock lock(mutex_);
  state_.stopping = true;
  eventsChanged_.notify_all();
}

bool Dispatcher::stopRequested() {
  Lock lock(mutex_);
  return state_.stopping;
}

uint64_t Dispatcher::CallCount(uint16_t op) {
  Lock lock(mutex_);
  return p11wire::IsWireCallOp(op) ? state_.callCounts[op - p11wire::kWireFirstCallOp] : 0;
}

CK_RV Dispatcher::CheckSession(const ClientState& client, uint32_t session) const {
  if (client.sessions.count(session)) return CKR_OK;
  if (client.removedSessions.count(session)) return CKR_DEVICE_REMOVED;
  return CKR_SESSION_HANDLE_INVALID;
}

CK_RV Dispatcher::ForgetSession(ClientState& client, CK_SESSION_HANDLE session) {
  CK_RV rv = module_->C_CloseSession(session);
  client.sessions.erase(session);
  state_.dataOnlySearches.erase(session);
  return rv;
}

void Dispatcher::CloseClientSessions(ClientState& client) {
  while (!client.sessions.empty()) ForgetSession(client, client.sessions.begin()->first);
  client.removedSessions.clear();
}

std::vector<uint8_t> Dispatcher::HandleCall(uint64_t clientId, uint16_t op,
                                            const std::vector<uint8_t>& body,
                                            const std::function<bool()>& peerGone) {
  Lock lock(mutex_);
  ClientState& c = state_.clients[clientId];
  if (p11wire::IsWireCallOp(op)) state_.callCounts[op - p11wire::kWireFirstCallOp]++;
  const bool ready = c.initialised;
  switch (static_cast<WireOp>(op)) {
    case WireOp::kInitialize:
      return Serve<WireOp::kInitialize>(body, ready, [&](auto& r) { return Initialize(c, r); });
    case WireOp::kFinalize:
      return Serve<WireOp::kFinalize>(body, ready, [&](auto&) { return Finalize(c); });
    case WireOp::kGetInfo:
      return Serve<WireOp::kGetInfo>(body, ready, [&](auto&) { return GetInfo(); });
    case WireOp::kGetSlotList:
      return Serve<WireOp::kGetSlotList>(body, ready, [&](auto& r) { return GetSlotList(r); });
    case WireOp::kGetSlotInfo:
      return Serve<WireOp::kGetSlotInfo>(body, ready, [&](auto& r) { return GetSlotInfo(r); });
    case WireOp::kGetTokenInfo:
      return Serve<WireOp::kGetTokenInfo>(body, ready, [&](auto& r) { return GetTokenInfo(r); });
    case WireOp::kWaitForSlotEvent:
      return Serve<WireOp::kWaitForSlotEvent>(
          body, ready, [&](auto& r) { return WaitForSlotEvent(lock, c, r, peerGone); });
    case WireOp::kGetMechanismList:
      return Serve<WireOp::kGetMechanismList>(body, ready,
                                              [&](auto& r) { return GetMechanismList(r); });
    case WireOp::kGetMechanismInfo:
      return Serve<WireOp::kGetMechanismInfo>(body, ready,
                                              [&](auto& r) { return GetMechanismInfo(r); });
    case WireOp::kInitToken:
      return Serve<WireOp::kInitToken>(body, ready, [&](auto& r) { return InitToken(r); });
    case WireOp::kInitPIN:
      return Serve<WireOp::kInitPIN>(body, ready, [&](auto& r) { return InitPin(c, r); });
    case WireOp::kSetPIN:
      return Serve<WireOp::kSetPIN>(body, ready, [&](auto& r) { return SetPin(c, r); });
    case WireOp::kOpenSession:
      return Serve<WireOp::kOpenSession>(body, ready, [&](auto& r) { return OpenSession(c, r); });
    case WireOp::kCloseSession:
      return Serve<WireOp::kCloseSession>(body, ready, [&](auto& r) { return CloseSession(c, r); });
    case WireOp::kCloseAllSessions:
      return Serve<WireOp::kCloseAllSessions>(body, ready,
                                              [&](auto& r) { return CloseAllSessions(c, r); });
    case WireOp::kGetSessionInfo:
      return Serve<WireOp::kGetSessionInfo>(body, ready,
                                            [&](auto& r) { return GetSessionInfo(c, r); });
    case WireOp::kLogin:
      return Serve<WireOp::kLogin>(body, ready, [&](auto& r) { return Login(c, r); });
    case WireOp::kLogout:
      return Serve<WireOp::kLogout>(body, ready, [&](auto& r) { return Logout(c, r); });
    case WireOp::kCreateObject:
      return Serve<WireOp::kCreateObject>(body, ready, [&](auto& r) { return CreateObject(c, r); });
    case WireOp::kDestroyObject:
      return Serve<WireOp::kDestroyObject>(body, ready,
                                           [&](auto& r) { return DestroyObject(c, r); });
    case WireOp::kGetAttributeValue:
      return Serve<WireOp::kGetAttributeValue>(body, ready,
                                               [&](auto& r) { return GetAttributeValue(c, r); });
    case WireOp::kSetAttributeValue:
      return Serve<WireOp::kSetAttributeValue>(body, ready,
                                               [&](auto& r) { return SetAttributeValue(c, r); });
    case WireOp::kFindObjectsInit:
      return Serve<WireOp::kFindObjectsInit>(body, ready,
                                             [&](auto& r) { return FindObjectsInit(c, r); });
    case WireOp::kFindObjects:
      return Serve<WireOp::kFindObjects>(body, ready, [&](auto& r) { return FindObjects(c, r); });
    case WireOp::kFindObjectsFinal:
      return Serve<WireOp::kFindObjectsFinal>(body, ready,
                                              [&](auto& r) { return FindObjectsFinal(c, r); });
    case WireOp::kGenerateKeyPair:
      return Serve<WireOp::kGenerateKeyPair>(body, ready,
                                             [&](auto& r) { return GenerateKeyPair(c, r); });
    case WireOp::kSignInit:
      return Serve<WireOp::kSignInit>(body, ready, [&](auto& r) { return OperationInit(c, op, r); });
    case WireOp::kSign:
      return Serve<WireOp::kSign>(body, ready, [&](auto& r) { return OneShot(c, op, r); });
    case WireOp::kDecryptInit:
      return Serve<WireOp::kDecryptInit>(body, ready,
                                         [&](auto& r) { return OperationInit(c, op, r); });
    case WireOp::kDecrypt:
      return Serve<WireOp::kDecrypt>(body, ready, [&](auto& r) { return OneShot(c, op, r); });
    case WireOp::kEncryptInit:
      return Serve<WireOp::kEncryptInit>(body, ready,
                                         [&](auto& r) { return OperationInit(c, op, r); });
    case WireOp::kEncrypt:
      return Serve<WireOp::kEncrypt>(body, ready, [&](auto& r) { return OneShot(c, op, r); });
    case WireOp::kGenerateRandom:
      return Serve<WireOp::kGenerateRandom>(body, ready,
                                            [&](auto& r) { return GenerateRandom(c, r); });
    case WireOp::kHello:
    case WireOp::kControl:
      break;
  }
  // The server passes only call operations; anything else is a status-only refusal.
  return p11wire::EncodeBody(p11wire::StatusReply{CKR_FUNCTION_NOT_SUPPORTED});
}

}  // namespace nivra::p11helper
