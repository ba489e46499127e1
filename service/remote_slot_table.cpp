#include "service/remote_slot_table.h"

#include <cstring>
#include <vector>

#include "platform/named_mutex.h"
#include "service/frames/frame_codes.h"
#include "service/frames/slot_records.h"
#include "service/service_link.h"
#include "service/service_settings.h"
#include "service/slot_channel.h"
#include "service/socket_layer.h"

namespace nivra::service {

namespace {

using frames::FrameStatus;

RemoteSlotLink* Links() {
  static RemoteSlotLink* links = new RemoteSlotLink[pkcs11::kMaxSlots];  // never freed
  return links;
}

// One request and its answer on the control connection, under the control mutex.
Status ControlExchange(const frames::Bytes& request, RequestBuffers& list,
                       frames::FrameView* answer) {
  platform::NamedMutexLock guard(ControlMutex());
  ServiceLinkState& link = LinkState();
  Status status = ServiceLinkEnsure();
  if (status != provider::kOk) {
    link.state = kServiceDown;
    return status;
  }
  link.state = kServiceUp;
  const int timeout = Settings().requestTimeoutMs;
  uint8_t* message = nullptr;
  size_t length = 0;
  status = SockCheckAlive(link.socket);
  if (status == 0) status = SockSendExact(request.data(), request.size(), link.socket, timeout);
  if (status == 0) status = SockRecvMessage(&message, &length, link.socket, &list, timeout);
  if (status != 0) {
    ServiceLinkClose();
    return status;
  }
  frames::ParseFrame(message, length, answer);
  return provider::kOk;
}

void CopyRecord(const frames::SlotRecord& from, P11Slot& to) {
  to.slotId = from.slotId;
  to.tokenPresent = from.tokenPresent;
  static_assert(sizeof(to.name) > frames::kSlotNameSize, "record name holds the wire name");
  std::memcpy(to.name, from.name, frames::kSlotNameSize);
  to.name[frames::kSlotNameSize] = '\0';
  std::memcpy(to.serial, from.serial, frames::kSlotSerialSize);
  to.remote = 1;
}

}  // namespace

SlotTable& RemoteTable() {
  static SlotTable* table = new SlotTable{};
  return *table;
}

RemoteSlotLink& LinkOf(P11Slot& record) {
  if (record.link == nullptr) {
    const size_t index = static_cast<size_t>(&record - RemoteTable().records);
    record.link = &Links()[index < pkcs11::kMaxSlots ? index : 0];
  }
  return *record.link;
}

Status ServiceRefreshSlots() {
  RequestBuffers list;
  frames::FrameView answer;
  Status status = ControlExchange(frames::BuildSlotListRequest(), list, &answer);
  if (status != provider::kOk) return status;
  if (answer.header.command != frames::kCmdSlotListAnswer) return provider::kNteBadData;
  if (answer.header.status != 0) return answer.header.status;
  size_t announced = 0;
  std::vector<frames::SlotRecord> records;
  if (frames::ParseSlotListBody(answer.body, answer.header.bodyLength, pkcs11::kMaxSlots,
                                &announced, &records) != FrameStatus::kOk) {
    return provider::kNteBadLen;
  }
  SlotTable& table = RemoteTable();
  const uint32_t kept = static_cast<uint32_t>(records.size());
  for (uint32_t i = table.count; i < kept; ++i) {
    RemoteSlotLink* link = table.records[i].link;
    std::memset(static_cast<void*>(&table.records[i]), 0, sizeof(P11Slot));
    table.records[i].link = link;
  }
  for (uint32_t i = 0; i < kept; ++i) CopyRecord(records[i], table.records[i]);
  table.count = kept;
  return provider::kOk;
}

Status ServiceRefreshSlot(P11Slot& record, uint32_t* presentOut) {
  RequestBuffers list;
  frames::FrameView answer;
  Status status = ControlExchange(frames::BuildSlotInfoRequest(record.slotId), list, &answer);
  if (status != provider::kOk) return status;
  if (answer.header.command != frames::kCmdSlotInfoAnswer) return provider::kNteBadData;
  if (answer.header.status != 0) return answer.header.status;
  frames::SlotRecord fresh;
  if (frames::ParseSlotInfoBody(answer.body, answer.header.bodyLength, &fresh) !=
      FrameStatus::kOk) {
    return provider::kNteBadLen;
  }
  record.tokenPresent = fresh.tokenPresent;
  std::memcpy(record.serial, fresh.serial, frames::kSlotSerialSize);
  if (presentOut != nullptr) *presentOut = fresh.tokenPresent;
  return provider::kOk;
}

P11Slot* ServiceFindSlot(const char* name) {
  if (ServiceRefreshSlots() != provider::kOk) return nullptr;
  const size_t length = std::strlen(name);
  const char* key = length > pkcs11::kSlotNameChars ? name + length - pkcs11::kSlotNameChars : name;
  SlotTable& table = RemoteTable();
  for (uint32_t i = 0; i < table.count && i < pkcs11::kMaxSlots; ++i) {
    if (std::strcmp(table.records[i].name, key) == 0) return &table.records[i];
  }
  return nullptr;
}

void ServiceClearSlots() {
  platform::NamedMutexLock lock(pkcs11::SlotTableMutex());
  SlotTable& table = RemoteTable();
  for (uint32_t i = 0; i < table.count && i < pkcs11::kMaxSlots; ++i) {
    P11Slot& record = table.records[i];
    RemoteSlotLink& link = LinkOf(record);
    {
      std::lock_guard<std::mutex> use(link.use);
      SlotChannelClose(record);
    }
    if (record.linkMutex != nullptr) CloseHandle(record.linkMutex);
    std::memset(static_cast<void*>(&record), 0, sizeof(record));
    record.link = &link;
    record.remote = 1;
  }
}

}  // namespace nivra::service
