#include "tools/p11helper/dispatcher.h"

#include <type_traits>

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

template <WireOp op, auto method>
std::vector<uint8_t> Dispatcher::Route(Dispatcher& d, Call& call) {
  return Serve<op>(call.body, call.client.initialised, [&](auto& request) {
    using Method = decltype(method);
    using Request = decltype(request);
    if constexpr (std::is_invocable_v<Method, Dispatcher&, Lock&, ClientState&, Request,
                                      const std::function<bool()>&>) {
      return (d.*method)(call.lock, call.client, request, call.peerGone);
    } else if constexpr (std::is_invocable_v<Method, Dispatcher&, ClientState&, uint16_t, Request>) {
      return (d.*method)(call.client, call.op, request);
    } else if constexpr (std::is_invocable_v<Method, Dispatcher&, ClientState&, Request>) {
      return (d.*method)(call.client, request);
    } else if constexpr (std::is_invocable_v<Method, Dispatcher&, Request>) {
      return (d.*method)(request);
    } else if constexpr (std::is_invocable_v<Method, Dispatcher&, ClientState&>) {
      return (d.*method)(call.client);
    } else {
      return (d.*method)();
    }
  });
}

const Dispatcher::CallRoute Dispatcher::kCallRoutes[] = {
    {WireOp::kInitialize, &Route<WireOp::kInitialize, &Dispatcher::Initialize>},
    {WireOp::kFinalize, &Route<WireOp::kFinalize, &Dispatcher::Finalize>},
    {WireOp::kGetInfo, &Route<WireOp::kGetInfo, &Dispatcher::GetInfo>},
    {WireOp::kGetSlotList, &Route<WireOp::kGetSlotList, &Dispatcher::GetSlotList>},
    {WireOp::kGetSlotInfo, &Route<WireOp::kGetSlotInfo, &Dispatcher::GetSlotInfo>},
    {WireOp::kGetTokenInfo, &Route<WireOp::kGetTokenInfo, &Dispatcher::GetTokenInfo>},
    {WireOp::kWaitForSlotEvent, &Route<WireOp::kWaitForSlotEvent, &Dispatcher::WaitForSlotEvent>},
    {WireOp::kGetMechanismList, &Route<WireOp::kGetMechanismList, &Dispatcher::GetMechanismList>},
    {WireOp::kGetMechanismInfo, &Route<WireOp::kGetMechanismInfo, &Dispatcher::GetMechanismInfo>},
    {WireOp::kInitToken, &Route<WireOp::kInitToken, &Dispatcher::InitToken>},
    {WireOp::kInitPIN, &Route<WireOp::kInitPIN, &Dispatcher::InitPin>},
    {WireOp::kSetPIN, &Route<WireOp::kSetPIN, &Dispatcher::SetPin>},
    {WireOp::kOpenSession, &Route<WireOp::kOpenSession, &Dispatcher::OpenSession>},
    {WireOp::kCloseSession, &Route<WireOp::kCloseSession, &Dispatcher::CloseSession>},
    {WireOp::kCloseAllSessions, &Route<WireOp::kCloseAllSessions, &Dispatcher::CloseAllSessions>},
    {WireOp::kGetSessionInfo, &Route<WireOp::kGetSessionInfo, &Dispatcher::GetSessionInfo>},
    {WireOp::kLogin, &Route<WireOp::kLogin, &Dispatcher::Login>},
    {WireOp::kLogout, &Route<WireOp::kLogout, &Dispatcher::Logout>},
    {WireOp::kCreateObject, &Route<WireOp::kCreateObject, &Dispatcher::CreateObject>},
    {WireOp::kDestroyObject, &Route<WireOp::kDestroyObject, &Dispatcher::DestroyObject>},
    {WireOp::kGetAttributeValue, &Route<WireOp::kGetAttributeValue, &Dispatcher::GetAttributeValue>},
    {WireOp::kSetAttributeValue, &Route<WireOp::kSetAttributeValue, &Dispatcher::SetAttributeValue>},
    {WireOp::kFindObjectsInit, &Route<WireOp::kFindObjectsInit, &Dispatcher::FindObjectsInit>},
    {WireOp::kFindObjects, &Route<WireOp::kFindObjects, &Dispatcher::FindObjects>},
    {WireOp::kFindObjectsFinal, &Route<WireOp::kFindObjectsFinal, &Dispatcher::FindObjectsFinal>},
    {WireOp::kGenerateKeyPair, &Route<WireOp::kGenerateKeyPair, &Dispatcher::GenerateKeyPair>},
    {WireOp::kSignInit, &Route<WireOp::kSignInit, &Dispatcher::OperationInit>},
    {WireOp::kSign, &Route<WireOp::kSign, &Dispatcher::OneShot>},
    {WireOp::kDecryptInit, &Route<WireOp::kDecryptInit, &Dispatcher::OperationInit>},
    {WireOp::kDecrypt, &Route<WireOp::kDecrypt, &Dispatcher::OneShot>},
    {WireOp::kEncryptInit, &Route<WireOp::kEncryptInit, &Dispatcher::OperationInit>},
    {WireOp::kEncrypt, &Route<WireOp::kEncrypt, &Dispatcher::OneShot>},
    {WireOp::kGenerateRandom, &Route<WireOp::kGenerateRandom, &Dispatcher::GenerateRandom>},
};

std::vector<uint8_t> Dispatcher::HandleCall(uint64_t clientId, uint16_t op,
                                            const std::vector<uint8_t>& body,
                                            const std::function<bool()>& peerGone) {
  Lock lock(mutex_);
  ClientState& c = state_.clients[clientId];
  if (p11wire::IsWireCallOp(op)) state_.callCounts[op - p11wire::kWireFirstCallOp]++;
  Call call{c, op, body, lock, peerGone};
  for (const CallRoute& route : kCallRoutes) {
    if (static_cast<uint16_t>(route.op) == op) return route.serve(*this, call);
  }
  // The server passes only call operations; anything else is a status-only refusal.
  return p11wire::EncodeBody(p11wire::StatusReply{CKR_FUNCTION_NOT_SUPPORTED});
}

}  // namespace nivra::p11helper
