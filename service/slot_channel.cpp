#include "service/slot_channel.h"

#include <cstdio>
#include <mutex>

#include "platform/named_mutex.h"
#include "service/frames/frame_codes.h"
#include "service/frames/slot_records.h"
#include "service/secure_session.h"
#include "service/service_settings.h"
#include "service/socket_layer.h"

namespace nivra::service {

namespace {

constexpr Status kErrDeviceNotConnected = ERROR_DEVICE_NOT_CONNECTED;

Status Handshake(RemoteSlotLink& link) {
  RequestBuffers list;
  uint8_t* hello = nullptr;
  size_t helloLen = 0;
  Status status = SessionHelloBuild(&hello, &helloLen, &list);
  if (status != provider::kOk) return status;
  if (hello == nullptr) return provider::kErrInvalidParameter;
  const int timeout = Settings().requestTimeoutMs;
  status = SockSendExact(hello, helloLen, link.socket, timeout);
  if (status != 0) return status;
  uint8_t* answer = nullptr;
  size_t answerLen = 0;
  status = SockRecvMessage(&answer, &answerLen, link.socket, &list, timeout);
  if (status != 0) return status;
  return SessionHelloFinish(answer, answerLen, &link.sessionState, &link.cipher);
}

void CreateChannelMutex(P11Slot& record, SOCKET socket) {
  if (record.linkMutex != nullptr) return;
  wchar_t name[64];
  swprintf(name, sizeof(name) / sizeof(name[0]), L"SlotSocketMutex_%lld",
           static_cast<long long>(socket));
  record.linkMutex = platform::OpenOrCreateSharedMutex(name);
}

}  // namespace

void SlotChannelClose(P11Slot& record) {
  RemoteSlotLink& link = LinkOf(record);
  SockClose(&link.socket);
  link.sessionState = kSessionNone;
  if (link.cipher != 0) crypto::CipherDestroy(link.cipher);
  link.cipher = 0;
}

Status SlotChannelOpen(P11Slot* record) {
  if (record == nullptr) return provider::kNteFail;
  RemoteSlotLink& link = LinkOf(*record);
  if (!NoSocket(link.socket)) {
    if (SockCheckAlive(link.socket) == 0) return provider::kOk;
    SlotChannelClose(*record);
  }
  const ServiceSettings& settings = Settings();
  Status status = SockConnect(&link.socket, settings.host, settings.port,
                              settings.connectTimeoutMs);
  if (status != 0) return status;
  status = Handshake(link);
  if (status != provider::kOk) {
    SlotChannelClose(*record);
    return status;
  }
  CreateChannelMutex(*record, link.socket);
  return provider::kOk;
}

Status SlotTransact(P11Slot& record, const uint8_t* request, size_t requestLen,
                    frames::FrameView* response, RequestBuffers& list) {
  const uint16_t command = frames::ReadHeader(request).command;
  const ServiceSettings& settings = Settings();
  const int timeout = command == frames::kCmdGenerateKeyPair ? settings.keyGenTimeoutMs
                                                             : settings.requestTimeoutMs;
  frames::Bytes slotFrame;
  if (frames::BuildSlotFrame(record.slotId, request, requestLen, &slotFrame) !=
      frames::FrameStatus::kOk) {
    return provider::kNteBadLen;
  }
  RemoteSlotLink& link = LinkOf(record);
  std::lock_guard<std::mutex> use(link.use);
  Status status = SlotChannelOpen(&record);
  if (status != provider::kOk) return status;
  platform::NamedMutexLock channel(record.linkMutex);

  const uint8_t* wrapped = nullptr;
  size_t wrappedLen = 0;
  status = SessionWrap(link.sessionState, link.cipher, slotFrame.data(), slotFrame.size(),
                       &wrapped, &wrappedLen, &list);
  if (status != provider::kOk) return status;
  uint8_t* answer = nullptr;
  size_t answerLen = 0;
  SockStatus transport = SockCheckAlive(link.socket);
  if (transport == 0) transport = SockSendExact(wrapped, wrappedLen, link.socket, timeout);
  if (transport == 0) {
    transport = SockRecvMessage(&answer, &answerLen, link.socket, &list, timeout);
  }
  if (transport != 0) {
    SlotChannelClose(record);
    return transport == WSAETIMEDOUT ? provider::kScardTimeout : kErrDeviceNotConnected;
  }
  const uint8_t* plain = nullptr;
  size_t plainLen = 0;
  status = SessionUnwrap(link.sessionState, link.cipher, answer, answerLen, &plain, &plainLen,
                         &list);
  if (status != provider::kOk) return status;
  if (frames::ParseFrame(plain, plainLen, response) != frames::FrameStatus::kOk ||
      response->header.command != frames::ResponseCommand(command)) {
    return provider::kNteBadData;
  }
  return provider::kOk;
}

}  // namespace nivra::service
