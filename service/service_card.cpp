#include "service/service_card.h"

#include <vector>

#include "crypto/wipe.h"
#include "service/card_command.h"
#include "service/device_auth.h"
#include "service/encrypted_channel.h"
#include "service/frames/card_key_exchange.h"
#include "service/frames/crypto_guards.h"
#include "service/frames/frame_codes.h"
#include "service/frames/session_handshake.h"
#include "service/secure_session.h"
#include "service/service_settings.h"
#include "service/socket_layer.h"
#include "service/string_convert.h"

namespace nivra::service {

namespace {

constexpr char kLockPrefix[] = "NivraCSP_";
constexpr size_t kLockNameChars = 260;
constexpr size_t kAddressChars = 64;

// One frame out and one message back on the card's connection.
Status Ask(SOCKET socket, const frames::Bytes& frame, int timeoutMs, uint8_t** answer,
           size_t* answerLen, RequestBuffers& list) {
  SockStatus transport = SockSendExact(frame.data(), frame.size(), socket, timeoutMs);
  if (transport == 0) transport = SockRecvMessage(answer, answerLen, socket, &list, timeoutMs);
  return transport;
}

}  // namespace

std::unique_ptr<provider::CardDevice> SvcDevice::Clone() const {
  auto copy = std::make_unique<SvcDevice>(entry_);
  copy->owner = owner;
  return copy;
}

std::string SvcDevice::LockName() const {
  std::string name = std::string(kLockPrefix) + entry_.name;
  if (name.size() > kLockNameChars) name.resize(kLockNameChars);
  return name;
}

void SvcDevice::Close() { ChannelClose({&socket_, &sessionState_, &cipher_}); }

Status SvcDevice::SessionOpen() {
  if (sessionState_ != 0) return provider::kOk;
  const ServiceSettings& settings = Settings();
  wchar_t address[kAddressChars + 1] = {};
  size_t capacity = kAddressChars + 1;
  if (Utf8ToWide(entry_.address.c_str(), address, &capacity) == 0 ||
      SockConnect(&socket_, address, settings.cardPort, settings.connectTimeoutMs) != 0) {
    Close();
    return provider::kNteNotFound;
  }
  const Status status = KeyExchange();
  if (status != provider::kOk) Close();
  return status;
}

Status SvcDevice::KeyExchange() {
  const int timeout = Settings().requestTimeoutMs;
  RequestBuffers list;
  frames::Bytes offer;
  if (frames::BuildKeyOffer(entry_.name, &offer) != frames::FrameStatus::kOk) {
    return provider::kNteFail;
  }
  uint8_t* answer = nullptr;
  size_t answerLen = 0;
  if (Ask(socket_, offer, timeout, &answer, &answerLen, list) != 0) return provider::kNteFail;
  const uint8_t* der = nullptr;
  size_t derLen = 0;
  switch (frames::ParseCardKeyFrame(answer, answerLen, &der, &derLen)) {
    case frames::FrameStatus::kOk: break;
    case frames::FrameStatus::kPeerStatus: return frames::ReadHeader(answer).status;
    default: return provider::kNteFail;
  }

  uint8_t secret[frames::kSessionSecretSize];
  frames::CipherOwner cipher;
  frames::Bytes keyFrame;
  const bool made =
      frames::MakeSessionSecret(secret) == frames::FrameStatus::kOk &&
      frames::OpenSessionSecret(secret, sizeof(secret), cipher.Out()) ==
          frames::FrameStatus::kOk &&
      frames::BuildSessionKeyFrame(der, derLen, secret, sizeof(secret), &keyFrame,
                                   frames::kCmdCardSessionKey) == frames::FrameStatus::kOk;
  crypto::Wipe(secret, sizeof(secret));
  if (!made) return provider::kNteFail;
  if (Ask(socket_, keyFrame, timeout, &answer, &answerLen, list) != 0) return provider::kNteFail;
  switch (frames::ParseCardSessionAck(answer, answerLen)) {
    case frames::FrameStatus::kOk: break;
    case frames::FrameStatus::kPeerStatus: return frames::ReadHeader(answer).status;
    default: return provider::kNteFail;
  }
  if (cipher_ != 0) crypto::CipherDestroy(cipher_);
  cipher_ = cipher.Release();
  sessionState_ = kSessionEncrypted;
  return provider::kOk;
}

Status SvcDevice::Transact(const uint8_t* request, size_t len, frames::FrameView* response,
                           RequestBuffers& list) {
  Status status = SessionOpen();
  if (status != provider::kOk) return status;
  const uint16_t command = frames::ReadHeader(request).command;
  const uint8_t* wrapped = nullptr;
  size_t wrappedLen = 0;
  status = SessionWrap(sessionState_, cipher_, request, len, &wrapped, &wrappedLen, &list);
  if (status != provider::kOk) return status;
  const int timeout = AnswerTimeout(command);
  uint8_t* answer = nullptr;
  size_t answerLen = 0;
  SockStatus transport = SockSendExact(wrapped, wrappedLen, socket_, timeout);
  if (transport == 0) transport = SockRecvMessage(&answer, &answerLen, socket_, &list, timeout);
  if (transport != 0) {
    Close();
    return provider::kNteFail;
  }
  const uint8_t* plain = nullptr;
  size_t plainLen = 0;
  status = SessionUnwrap(sessionState_, cipher_, answer, answerLen, &plain, &plainLen, &list);
  if (status != provider::kOk) return status;
  if (frames::ParseFrame(plain, plainLen, response) != frames::FrameStatus::kOk ||
      response->header.command != frames::ResponseCommand(command)) {
    return provider::kNteBadData;
  }
  return provider::kOk;
}

Status SvcDevice::Authenticate(ProviderContext& ctx, bool) {
  frames::ConfirmationState state;
  Status status = AskLoginState(*this, &state);
  if (status != provider::kOk) return status;
  if (state.authenticated || CardVerifyCachedPin(ctx, *this)) return provider::kOk;
  if (ctx.silent) return provider::kNteSilentContext;
  return WaitForConfirmation(*this, kConfirmForKeyUse);
}

}  // namespace nivra::service
