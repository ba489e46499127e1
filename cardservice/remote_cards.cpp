#include "cardservice/remote_cards.h"

#include "cardservice/card_handlers.h"
#include "cardservice/service_log.h"
#include "service/frames/frame_codes.h"

namespace nivra::cardservice {

namespace {

const char* KindName(RemoteKind kind) {
  return kind == RemoteKind::kDevice ? "device" : "card";
}

std::string TrimmedLabel(const CK_UTF8CHAR* label, size_t size) {
  std::string text(reinterpret_cast<const char*>(label), size);
  size_t end = text.find_last_not_of(' ');
  text.resize(end == std::string::npos ? 0 : end + 1);
  return text;
}

// The slot whose token carries `label`; false when no token does.
bool SlotOfToken(CK_FUNCTION_LIST* p11, const std::string& label, uint32_t* slotId) {
  CK_ULONG count = 0;
  if (p11->C_GetSlotList(CK_TRUE, nullptr, &count) != CKR_OK) return false;
  std::vector<CK_SLOT_ID> ids(count);
  if (count == 0 || p11->C_GetSlotList(CK_TRUE, ids.data(), &count) != CKR_OK) return false;
  for (CK_ULONG i = 0; i < count; ++i) {
    CK_TOKEN_INFO token;
    if (ids[i] > UINT32_MAX || p11->C_GetTokenInfo(ids[i], &token) != CKR_OK) continue;
    if (TrimmedLabel(token.label, sizeof token.label) == label) {
      *slotId = static_cast<uint32_t>(ids[i]);
      return true;
    }
  }
  return false;
}

}  // namespace

bool RemoteCard::PendingLocked() {
  if (pending_ && std::chrono::steady_clock::now() - pendingSince_ > kPendingLifetime) {
    pending_ = false;
    LogLine("%s %s: the confirmation request lapsed unanswered", KindName(config_.kind),
            name().c_str());
  }
  return pending_;
}

bool RemoteCard::Pending() {
  std::lock_guard<std::mutex> guard(mutex_);
  return PendingLocked();
}

frames::ConfirmationState RemoteCard::State(CardService* service) {
  CardAnswer login = service->Execute(logins_, slotId_, frames::kCmdLoginState, {});
  frames::ConfirmationState state;
  state.authenticated = login.status == kStatusOk && login.response.value != 0;
  state.pending = PendingLocked();
  return state;
}

CardAnswer RemoteCard::Execute(CardService* service, uint16_t command,
                               const frames::CardRequest& request) {
  std::lock_guard<std::mutex> guard(mutex_);
  switch (command) {
    case frames::kCmdLoginState:
      return AnswerValue(frames::ConfirmationValue(State(service)));
    case frames::kCmdAskConfirmation: {
      frames::ConfirmationState state = State(service);
      if (state.authenticated) return AnswerValue(frames::ConfirmationValue(state));
      if (!pending_) {
        pending_ = true;
        pendingSince_ = std::chrono::steady_clock::now();
        LogLine("CONFIRM? %s %s (\"%s\") asks to be unlocked (reason %u): answer with "
                "'confirm %s' or 'refuse %s' on the control interface",
                KindName(config_.kind), name().c_str(), config_.display.c_str(), request.reason,
                name().c_str(), name().c_str());
      }
      return AnswerValue(frames::ConfirmationValue({false, true}));
    }
    case frames::kCmdEndConfirmation:
      if (PendingLocked()) {
        pending_ = false;
        LogLine("%s %s: the client stopped waiting for a confirmation", KindName(config_.kind),
                name().c_str());
      }
      return AnswerValue(frames::ConfirmationValue(State(service)));
    case frames::kCmdCardLimits: {
      CardAnswer answer;
      answer.response.limits = config_.limits;
      return answer;
    }
    default:
      return service->Execute(logins_, slotId_, command, request);
  }
}

bool RemoteCard::Confirm(CardService* service, std::string* why) {
  std::lock_guard<std::mutex> guard(mutex_);
  if (!PendingLocked()) {
    *why = "no confirmation is pending for " + name();
    return false;
  }
  pending_ = false;
  frames::CardRequest login;
  login.text = config_.pin;
  CardAnswer answer = service->Execute(logins_, slotId_, frames::kCmdVerifyPin, login);
  if (answer.status != kStatusOk || answer.response.value == 0) {
    *why = "the token refused the configured PIN of " + name();
    LogLine("%s %s: confirmed, but %s", KindName(config_.kind), name().c_str(), why->c_str());
    return false;
  }
  LogLine("%s %s: confirmed; unlocked until its token logs out", KindName(config_.kind),
          name().c_str());
  return true;
}

bool RemoteCard::Refuse(std::string* why) {
  std::lock_guard<std::mutex> guard(mutex_);
  if (!PendingLocked()) {
    *why = "no confirmation is pending for " + name();
    return false;
  }
  pending_ = false;
  LogLine("%s %s: refused", KindName(config_.kind), name().c_str());
  return true;
}

bool RemoteCards::Load(CK_FUNCTION_LIST* p11, std::vector<RemoteCardConfig> configs,
                       std::string* error) {
  for (RemoteCardConfig& config : configs) {
    if (FindAny(config.name)) {
      *error = "the name " + config.name + " is used twice";
      return false;
    }
    uint32_t slotId = 0;
    if (!SlotOfToken(p11, config.tokenLabel, &slotId)) {
      *error = "no token labelled '" + config.tokenLabel + "' for " + config.name;
      return false;
    }
    auto card = std::make_unique<RemoteCard>(std::move(config), slotId);
    if (card->config().kind == RemoteKind::kServiceCard &&
        crypto::RsaGenerateNewKey(card->cardKeyOut(), card->config().keyBits, kCardKeyExponent) !=
            crypto::kOk) {
      *error = "no key pair could be made for " + card->name();
      return false;
    }
    cards_.push_back(std::move(card));
  }
  return true;
}

std::vector<RemoteCard*> RemoteCards::OfKind(RemoteKind kind) {
  std::vector<RemoteCard*> out;
  for (auto& card : cards_) {
    if (card->config().kind == kind) out.push_back(card.get());
  }
  return out;
}

RemoteCard* RemoteCards::Find(RemoteKind kind, const std::string& name) {
  for (auto& card : cards_) {
    if (card->config().kind == kind && card->name() == name) return card.get();
  }
  return nullptr;
}

RemoteCard* RemoteCards::FindAny(const std::string& name) {
  for (auto& card : cards_) {
    if (card->name() == name) return card.get();
  }
  return nullptr;
}

}  // namespace nivra::cardservice
