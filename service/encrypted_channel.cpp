#include "service/encrypted_channel.h"

#include "service/frames/frame_codes.h"
#include "service/secure_session.h"
#include "service/service_settings.h"
#include "service/socket_layer.h"

namespace nivra::service {

namespace {

constexpr Status kErrDeviceNotConnected = ERROR_DEVICE_NOT_CONNECTED;

Status Handshake(ChannelFields channel) {
  RequestBuffers list;
  uint8_t* hello = nullptr;
  size_t helloLen = 0;
  Status status = SessionHelloBuild(&hello, &helloLen, &list);
  if (status != provider::kOk) return status;
  if (hello == nullptr) return provider::kErrInvalidParameter;
  const int timeout = Settings().requestTimeoutMs;
  status = SockSendExact(hello, helloLen, *channel.socket, timeout);
  if (status != 0) return status;
  uint8_t* answer = nullptr;
  size_t answerLen = 0;
  status = SockRecvMessage(&answer, &answerLen, *channel.socket, &list, timeout);
  if (status != 0) return status;
  return SessionHelloFinish(answer, answerLen, channel.sessionState, channel.cipher);
}

}  // namespace

void ChannelClose(ChannelFields channel) {
  SockClose(channel.socket);
  *channel.sessionState = kSessionNone;
  if (*channel.cipher != 0) crypto::CipherDestroy(*channel.cipher);
  *channel.cipher = 0;
}

Status ChannelOpen(ChannelFields channel) {
  if (!NoSocket(*channel.socket)) {
    if (SockCheckAlive(*channel.socket) == 0) return provider::kOk;
    ChannelClose(channel);
  }
  const ServiceSettings& settings = Settings();
  Status status = SockConnect(channel.socket, settings.host, settings.port,
                              settings.connectTimeoutMs);
  if (status != 0) return status;
  status = Handshake(channel);
  if (status != provider::kOk) ChannelClose(channel);
  return status;
}

int AnswerTimeout(uint16_t command) {
  const ServiceSettings& settings = Settings();
  return command == frames::kCmdGenerateKeyPair ? settings.keyGenTimeoutMs
                                                 : settings.requestTimeoutMs;
}

Status ChannelExchange(ChannelFields channel, const frames::Bytes& outer, uint16_t command,
                       int timeoutMs, frames::FrameView* response, RequestBuffers& list) {
  const uint8_t* wrapped = nullptr;
  size_t wrappedLen = 0;
  Status status = SessionWrap(*channel.sessionState, *channel.cipher, outer.data(), outer.size(),
                              &wrapped, &wrappedLen, &list);
  if (status != provider::kOk) return status;
  uint8_t* answer = nullptr;
  size_t answerLen = 0;
  SockStatus transport = SockCheckAlive(*channel.socket);
  if (transport == 0) transport = SockSendExact(wrapped, wrappedLen, *channel.socket, timeoutMs);
  if (transport == 0) {
    transport = SockRecvMessage(&answer, &answerLen, *channel.socket, &list, timeoutMs);
  }
  if (transport != 0) {
    ChannelClose(channel);
    return transport == WSAETIMEDOUT ? provider::kScardTimeout : kErrDeviceNotConnected;
  }
  const uint8_t* plain = nullptr;
  size_t plainLen = 0;
  status = SessionUnwrap(*channel.sessionState, *channel.cipher, answer, answerLen, &plain,
                         &plainLen, &list);
  if (status != provider::kOk) return status;
  if (frames::ParseFrame(plain, plainLen, response) != frames::FrameStatus::kOk ||
      response->header.command != frames::ResponseCommand(command)) {
    return provider::kNteBadData;
  }
  return provider::kOk;
}

}  // namespace nivra::service
