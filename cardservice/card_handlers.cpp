#include "cardservice/card_handlers.h"

namespace nivra::cardservice {

// The same translation as the provider's module path, so that an application sees one answer
// for one token condition whichever road it takes.
WireStatus StatusFromCkr(CK_RV rv) {
  switch (rv) {
    case CKR_OK:
      return kStatusOk;
    case CKR_CANCEL:
      return kStatusCancelled;
    case CKR_HOST_MEMORY:
    case CKR_DEVICE_MEMORY:
      return kStatusNoMemory;
    case CKR_SLOT_ID_INVALID:
    case CKR_ARGUMENTS_BAD:
      return kStatusInvalidParameter;
    case CKR_DATA_INVALID:
    case CKR_DATA_LEN_RANGE:
      return kStatusBadData;
    case CKR_FUNCTION_NOT_SUPPORTED:
      return kStatusNotSupported;
    case CKR_PIN_INCORRECT:
    case CKR_PIN_LEN_RANGE:
      return kStatusInvalidChv;
    case CKR_PIN_LOCKED:
      return kStatusChvBlocked;
    case CKR_TOKEN_NOT_PRESENT:
      return kStatusUnknownCard;
    case CKR_USER_NOT_LOGGED_IN:
      return kStatusNotAuthenticated;
    case CKR_BUFFER_TOO_SMALL:
      return kStatusMoreData;
    default:
      return kStatusFail;
  }
}

CardAnswer AnswerValue(uint32_t value) {
  CardAnswer answer;
  answer.response.value = value;
  return answer;
}

bool ChannelLoggedIn(CardCall& call) {
  auto entry = call.logins->find(static_cast<uint32_t>(call.state->slot()));
  return entry != call.logins->end() && entry->second == call.state->epoch() &&
         call.state->TokenLoggedIn();
}

WireStatus ContainerFromHandle(CardCall& call, uint32_t handle, Container* out) {
  std::string name;
  if (!call.state->Lookup(handle, &name)) {
    // Unknown here (the service restarted since the client opened it): learn the token's names.
    std::vector<Container> all;
    CK_RV rv = ListContainers(call.token, &all);
    if (rv != CKR_OK) return StatusFromCkr(rv);
    for (const Container& container : all) call.state->Remember(container.name);
    if (!call.state->Lookup(handle, &name)) return kStatusBadKeyset;
  }
  bool found = false;
  CK_RV rv = FindContainer(call.token, name, out, &found);
  if (rv != CKR_OK) return StatusFromCkr(rv);
  return found ? kStatusOk : kStatusBadKeyset;
}

WireStatus ReadKeyTarget(CardCall& call, std::string* keyId) {
  Container container;
  WireStatus status = ContainerFromHandle(call, call.request.handle, &container);
  if (status != kStatusOk) return status;
  return StatusFromCkr(ContainerKeyId(call.token, container, call.request.keySpec, keyId));
}

}  // namespace nivra::cardservice
