#include "service/card_command.h"

#include "crypto/wipe.h"
#include "pkcs11/p11_status.h"
#include "service/frames/frame_codes.h"

namespace nivra::service {

namespace {

using frames::FrameStatus;

constexpr Status kNteNoMoreItems = provider::AsStatus(NTE_NO_MORE_ITEMS);

bool NeedsLogin(uint16_t command) {
  switch (command) {
    case frames::kCmdCreateContainer:
    case frames::kCmdDeleteContainer:
    case frames::kCmdGenerateKeyPair:
    case frames::kCmdImportKeyPair:
    case frames::kCmdPrivateKeyOp:
    case frames::kCmdPublicKeyOp:
    case frames::kCmdWriteCertificate:
      return true;
    default:
      return false;
  }
}

// The card's status as the caller sees it.
Status TranslateStatus(uint16_t command, Status status) {
  switch (command) {
    case frames::kCmdOpenContainer:
      if (status == pkcs11::kErrNoMoreItems || status == kNteNoMoreItems) {
        return provider::kNteBadKeyset;
      }
      break;
    case frames::kCmdChangePin:
    case frames::kCmdUnblockPin:
    case frames::kCmdInitToken:
    case frames::kCmdInitTokenPlain:
    case frames::kCmdImportKeyPair:
      if (status == provider::kNteBadFlags) return provider::kNteNotSupported;
      break;
    default:
      break;
  }
  return status;
}

// An answer body that breaks its layout.
Status BadAnswerStatus(uint16_t command) {
  switch (command) {
    case frames::kCmdOpenContainer: return provider::kNteBadData;
    case frames::kCmdCardLimits: return provider::kNteBadLen;
    default: return provider::kNteFail;
  }
}

Status BuildRequest(uint16_t command, const frames::CardRequest& request, frames::Bytes* frame) {
  switch (frames::BuildCardRequest(command, request, frame)) {
    case FrameStatus::kOk: return provider::kOk;
    case FrameStatus::kTooLong: return provider::kNteBadLen;
    case FrameStatus::kBadField: return provider::kNteBadData;
    default: return provider::kNteNoMemory;
  }
}

Status ExchangeFrame(RemoteCard& card, uint16_t command, const frames::Bytes& frame,
                     frames::CardResponse* response, size_t blockLength, Status* answerStatus) {
  *answerStatus = provider::kOk;
  RequestBuffers list;
  frames::FrameView answer;
  Status status = card.Transact(frame.data(), frame.size(), &answer, list);
  if (status != provider::kOk) return status;
  *answerStatus = answer.header.status;
  if (answer.header.status != 0) return TranslateStatus(command, answer.header.status);
  frames::CardResponse ignored;
  if (frames::ParseCardResponse(command, answer.body, answer.header.bodyLength, blockLength,
                                response != nullptr ? response : &ignored) != FrameStatus::kOk) {
    return BadAnswerStatus(command);
  }
  return provider::kOk;
}

}  // namespace

Status CardExchange(RemoteCard& card, uint16_t command, const frames::CardRequest& request,
                    frames::CardResponse* response, size_t blockLength, Status* answerStatus) {
  frames::Bytes frame;
  Status status = BuildRequest(command, request, &frame);
  if (status != provider::kOk) return status;
  Status raw = 0;
  status = ExchangeFrame(card, command, frame, response, blockLength, &raw);
  crypto::Wipe(frame.data(), frame.size());
  if (answerStatus != nullptr) *answerStatus = raw;
  return status;
}

Status CardVerifyPinText(RemoteCard& card, const std::string& pin) {
  frames::CardRequest request;
  request.text = pin;
  frames::CardResponse response;
  Status status = CardExchange(card, frames::kCmdVerifyPin, request, &response);
  crypto::Wipe(request.text.data(), request.text.size());
  if (status != provider::kOk) return status;
  return response.value == 0 ? pkcs11::kScardInvalidChv : provider::kOk;
}

bool CardVerifyCachedPin(ProviderContext& ctx, RemoteCard& card) {
  if (ctx.pinLength == 0) return false;
  std::string cached(reinterpret_cast<const char*>(ctx.pin), ctx.pinLength);
  const Status status = CardVerifyPinText(card, cached);
  crypto::Wipe(cached.data(), cached.size());
  return status == provider::kOk;
}

Status CardCommand(ProviderContext& ctx, RemoteCard& card, uint16_t command,
                   const frames::CardRequest& request, frames::CardResponse* response,
                   size_t blockLength) {
  frames::Bytes frame;
  Status status = BuildRequest(command, request, &frame);
  if (status != provider::kOk) return status;
  const bool login = NeedsLogin(command);
  if (login) {
    status = card.Authenticate(ctx, false);
    if (status != provider::kOk) return status;
  }
  Status raw = 0;
  status = ExchangeFrame(card, command, frame, response, blockLength, &raw);
  if (login && raw == pkcs11::kScardCardNotAuthenticated) {
    status = card.Authenticate(ctx, true);
    if (status == provider::kOk) {
      status = ExchangeFrame(card, command, frame, response, blockLength, &raw);
    }
  }
  crypto::Wipe(frame.data(), frame.size());
  return status;
}

}  // namespace nivra::service
