// Container commands: create, enumerate, open, delete.
#include "cardservice/card_handlers.h"

namespace nivra::cardservice {

namespace {

// The name the provider uses when an application names no container while creating or
// deleting one.
constexpr char kDefaultContainerName[] = "DefaultContainer";

// The container's handle and name.
CardAnswer NamedAnswer(CardCall& call, const std::string& name) {
  CardAnswer answer = AnswerValue(call.state->Remember(name));
  answer.response.name = name;
  return answer;
}

// The containers that a name on the wire can stand for (a name of 1 to 255 characters).
CK_RV WireContainers(TokenView token, std::vector<Container>* out) {
  CK_RV rv = ListContainers(token, out);
  std::vector<Container> kept;
  for (Container& c : *out) {
    if (!c.name.empty() && c.name.size() <= kMaxContainerName && c.name.find('\0') == std::string::npos) {
      kept.push_back(std::move(c));
    }
  }
  out->swap(kept);
  return rv;
}

}  // namespace

CardAnswer CreateContainerCommand(CardCall& call) {
  std::string name = call.request.text;
  if (name.size() > kMaxContainerName) return Fail(kStatusBadData);
  if (name.empty()) name = kDefaultContainerName;
  Container container;
  bool found = false;
  CK_RV rv = FindContainer(call.token, name, &container, &found);
  if (rv != CKR_OK) return FailCkr(rv);
  if (found) return Fail(kStatusExists);
  rv = CreateContainer(call.token, name, &container);
  if (rv != CKR_OK) return FailCkr(rv);
  return AnswerValue(call.state->Remember(name));
}

CardAnswer EnumContainersCommand(CardCall& call) {
  const uint32_t index = call.request.index;
  std::vector<Container> all;
  CK_RV rv = WireContainers(call.token, &all);
  if (rv != CKR_OK) return FailCkr(rv);
  if (index >= all.size()) return Fail(kStatusNoMoreItems);
  return NamedAnswer(call, all[index].name);
}

CardAnswer OpenContainerCommand(CardCall& call) {
  const std::string& name = call.request.text;
  if (name.size() > kMaxContainerName) return Fail(kStatusBadKeyset);
  if (name.empty()) {
    std::vector<Container> all;
    CK_RV rv = WireContainers(call.token, &all);
    if (rv != CKR_OK) return FailCkr(rv);
    if (all.empty()) return Fail(kStatusBadKeyset);
    return NamedAnswer(call, all[0].name);
  }
  Container container;
  bool found = false;
  CK_RV rv = FindContainer(call.token, name, &container, &found);
  if (rv != CKR_OK) return FailCkr(rv);
  if (!found) return Fail(kStatusBadKeyset);
  return NamedAnswer(call, name);
}

CardAnswer DeleteContainerCommand(CardCall& call) {
  Container container;
  WireStatus status = ContainerFromHandle(call, call.request.handle, &container);
  if (status != kStatusOk) return Fail(status);
  return FailCkr(DeleteContainer(call.token, container));
}

}  // namespace nivra::cardservice
