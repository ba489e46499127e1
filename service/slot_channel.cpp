#include "service/slot_channel.h"

#include <cstdio>
#include <mutex>

#include "platform/named_mutex.h"
#include "service/frames/frame_codes.h"
#include "service/frames/slot_records.h"
#include "service/encrypted_channel.h"

namespace nivra::service {

namespace {

void CreateChannelMutex(P11Slot& record, SOCKET socket) {
  if (record.linkMutex != nullptr) return;
  wchar_t name[64];
  swprintf(name, sizeof(name) / sizeof(name[0]), L"SlotSocketMutex_%lld",
           static_cast<long long>(socket));
  record.linkMutex = platform::OpenOrCreateSharedMutex(name);
}

ChannelFields FieldsOf(RemoteSlotLink& link) {
  return {&link.socket, &link.sessionState, &link.cipher};
}

}  // namespace

void SlotChannelClose(P11Slot& record) { ChannelClose(FieldsOf(LinkOf(record))); }

Status SlotChannelOpen(P11Slot* record) {
  if (record == nullptr) return provider::kNteFail;
  RemoteSlotLink& link = LinkOf(*record);
  Status status = ChannelOpen(FieldsOf(link));
  if (status != provider::kOk) return status;
  CreateChannelMutex(*record, link.socket);
  return provider::kOk;
}

Status SlotTransact(P11Slot& record, const uint8_t* request, size_t requestLen,
                    frames::FrameView* response, RequestBuffers& list) {
  const uint16_t command = frames::ReadHeader(request).command;
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
  return ChannelExchange(FieldsOf(link), slotFrame, command, AnswerTimeout(command), response,
                         list);
}

}  // namespace nivra::service
