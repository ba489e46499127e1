#include "service/device_lists.h"

#include "service/frames/frame_codes.h"
#include "service/service_settings.h"
#include "service/socket_layer.h"

namespace nivra::service {

Status OneRequest(const frames::Bytes& request, int connectTimeoutMs, frames::Bytes* answer,
                  bool* connectFailed) {
  *connectFailed = false;
  const ServiceSettings& settings = Settings();
  SOCKET socket = INVALID_SOCKET;
  SockStatus transport = SockConnect(&socket, settings.host, settings.port, connectTimeoutMs);
  if (transport != 0) {
    *connectFailed = true;
    return transport;
  }
  RequestBuffers list;
  uint8_t* received = nullptr;
  size_t receivedLen = 0;
  transport = SockSendExact(request.data(), request.size(), socket, settings.requestTimeoutMs);
  if (transport == 0) {
    transport = SockRecvMessage(&received, &receivedLen, socket, &list, settings.requestTimeoutMs);
  }
  SockClose(&socket);
  if (transport != 0) return transport;
  answer->assign(received, received + receivedLen);
  return provider::kOk;
}

namespace {

// One request on its own connection; *body receives the answer's body.
Status AskService(const frames::Bytes& request, uint16_t answerCommand, int connectTimeoutMs,
                  frames::Bytes* body, bool* connectFailed) {
  frames::Bytes answer;
  Status status = OneRequest(request, connectTimeoutMs, &answer, connectFailed);
  if (status != provider::kOk) return status;
  frames::FrameView view;
  if (frames::ParseFrame(answer.data(), answer.size(), &view) != frames::FrameStatus::kOk ||
      view.header.command != answerCommand) {
    return provider::kNteBadData;
  }
  if (view.header.status != 0) return view.header.status;
  body->assign(view.body, view.body + view.header.bodyLength);
  return provider::kOk;
}

Status ListStatus(frames::FrameStatus parsed) {
  switch (parsed) {
    case frames::FrameStatus::kOk: return provider::kOk;
    case frames::FrameStatus::kBadField: return provider::kNteBadData;
    default: return provider::kNteBadLen;
  }
}

}  // namespace

Status FetchDeviceList(int connectTimeoutMs, std::vector<frames::DeviceRecord>* devices,
                       bool* connectFailed) {
  frames::Bytes body;
  Status status = AskService(frames::BuildDeviceListRequest(), frames::kCmdDeviceListAnswer,
                             connectTimeoutMs, &body, connectFailed);
  if (status != provider::kOk) return status;
  return ListStatus(frames::ParseDeviceListBody(body.data(), body.size(), devices));
}

Status FetchCardList(int connectTimeoutMs, std::vector<frames::CardRecord>* cards,
                     bool* connectFailed) {
  frames::Bytes body;
  Status status = AskService(frames::BuildCardListRequest(), frames::kCmdCardListAnswer,
                             connectTimeoutMs, &body, connectFailed);
  if (status != provider::kOk) return status;
  return ListStatus(frames::ParseCardListBody(body.data(), body.size(), cards));
}

}  // namespace nivra::service
