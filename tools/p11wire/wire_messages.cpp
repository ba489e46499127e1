#include "tools/p11wire/wire_messages.h"

namespace nivra::p11wire {
namespace {

// Smallest encodings, used to refuse element counts that the rest of a body cannot hold.
constexpr size_t kMinAttributeSize = 4 + 1 + 4;
constexpr size_t kIdSize = 4;

void EncodeVersion(WireWriter& w, const WireVersion& v) {
  w.U8(v.major);
  w.U8(v.minor);
}

void DecodeVersion(WireReader& r, WireVersion* v) {
  v->major = r.U8();
  v->minor = r.U8();
}

void EncodeTemplate(WireWriter& w, const WireTemplate& t) {
  w.U32(static_cast<uint32_t>(t.size()));
  for (const WireAttribute& a : t) a.Encode(w);
}

bool DecodeTemplate(WireReader& r, WireTemplate* t) {
  uint32_t n = r.Count(kMinAttributeSize);
  t->clear();
  t->reserve(n);
  for (uint32_t i = 0; i < n && r.ok(); ++i) {
    WireAttribute a;
    a.Decode(r);
    t->push_back(std::move(a));
  }
  return r.ok();
}

}  // namespace

void WireOptBytes::Encode(WireWriter& w) const {
  w.Bool(present);
  if (present) w.Bytes(bytes);
}

bool WireOptBytes::Decode(WireReader& r) {
  present = r.Bool();
  bytes = present ? r.Bytes() : std::vector<uint8_t>();
  return r.ok();
}

void WireAttribute::Encode(WireWriter& w) const {
  w.U32(type);
  w.Bool(hasValue);
  w.U32(length);
  // The bytes follow only when there are any to carry; their count is `length`, except in a
  // query where they are absent, hence the explicit flag.
  w.Bool(!value.empty());
  if (!value.empty()) w.Bytes(value);
}

bool WireAttribute::Decode(WireReader& r) {
  type = r.U32();
  hasValue = r.Bool();
  length = r.U32();
  const bool bytesFollow = r.Bool();
  value = bytesFollow ? r.Bytes() : std::vector<uint8_t>();
  // A well-formed peer sends bytes only when there are some, only into a buffer, and exactly as
  // many as the stated length.
  if (bytesFollow && (value.empty() || !hasValue || value.size() != length)) r.Fail();
  return r.ok();
}

void WireMechanism::Encode(WireWriter& w) const {
  w.U32(type);
  parameter.Encode(w);
}

bool WireMechanism::Decode(WireReader& r) {
  type = r.U32();
  return parameter.Decode(r);
}

void HelloRequest::Encode(WireWriter& w) const {
  w.U32(version);
  w.U64(clientId);
  w.U32(processId);
}

bool HelloRequest::Decode(WireReader& r) {
  version = r.U32();
  clientId = r.U64();
  processId = r.U32();
  return r.ok();
}

void ControlRequest::Encode(WireWriter& w) const { w.Text(command); }

bool ControlRequest::Decode(WireReader& r) {
  command = r.Text();
  return r.ok();
}

void InitializeRequest::Encode(WireWriter& w) const {
  w.Bool(hasArguments);
  w.U32(flags);
  w.Bool(mutexFunctions);
}

bool InitializeRequest::Decode(WireReader& r) {
  hasArguments = r.Bool();
  flags = r.U32();
  mutexFunctions = r.Bool();
  return r.ok();
}

void SlotRequest::Encode(WireWriter& w) const { w.U32(slot); }

bool SlotRequest::Decode(WireReader& r) {
  slot = r.U32();
  return r.ok();
}

void SessionRequest::Encode(WireWriter& w) const { w.U32(session); }

bool SessionRequest::Decode(WireReader& r) {
  session = r.U32();
  return r.ok();
}

void ListRequest::Encode(WireWriter& w) const {
  w.U32(slot);
  w.Bool(tokenPresent);
  w.Bool(wantList);
  w.U32(capacity);
}

bool ListRequest::Decode(WireReader& r) {
  slot = r.U32();
  tokenPresent = r.Bool();
  wantList = r.Bool();
  capacity = r.U32();
  return r.ok();
}

void WaitForSlotEventRequest::Encode(WireWriter& w) const { w.U32(flags); }

bool WaitForSlotEventRequest::Decode(WireReader& r) {
  flags = r.U32();
  return r.ok();
}

void MechanismInfoRequest::Encode(WireWriter& w) const {
  w.U32(slot);
  w.U32(mechanism);
}

bool MechanismInfoRequest::Decode(WireReader& r) {
  slot = r.U32();
  mechanism = r.U32();
  return r.ok();
}

void InitTokenRequest::Encode(WireWriter& w) const {
  w.U32(slot);
  soPin.Encode(w);
  label.Encode(w);
}

bool InitTokenRequest::Decode(WireReader& r) {
  slot = r.U32();
  soPin.Decode(r);
  return label.Decode(r);
}

void PinRequest::Encode(WireWriter& w) const {
  w.U32(session);
  w.U32(userType);
  pin.Encode(w);
}

bool PinRequest::Decode(WireReader& r) {
  session = r.U32();
  userType = r.U32();
  return pin.Decode(r);
}

void SetPinRequest::Encode(WireWriter& w) const {
  w.U32(session);
  oldPin.Encode(w);
  newPin.Encode(w);
}

bool SetPinRequest::Decode(WireReader& r) {
  session = r.U32();
  oldPin.Decode(r);
  return newPin.Decode(r);
}

void OpenSessionRequest::Encode(WireWriter& w) const {
  w.U32(slot);
  w.U32(flags);
}

bool OpenSessionRequest::Decode(WireReader& r) {
  slot = r.U32();
  flags = r.U32();
  return r.ok();
}

void TemplateRequest::Encode(WireWriter& w) const {
  w.U32(session);
  w.U32(object);
  EncodeTemplate(w, attributes);
}

bool TemplateRequest::Decode(WireReader& r) {
  session = r.U32();
  object = r.U32();
  return DecodeTemplate(r, &attributes);
}

void ObjectRequest::Encode(WireWriter& w) const {
  w.U32(session);
  w.U32(object);
}

bool ObjectRequest::Decode(WireReader& r) {
  session = r.U32();
  object = r.U32();
  return r.ok();
}

void FindObjectsRequest::Encode(WireWriter& w) const {
  w.U32(session);
  w.U32(maxObjects);
}

bool FindObjectsRequest::Decode(WireReader& r) {
  session = r.U32();
  maxObjects = r.U32();
  return r.ok();
}

void GenerateKeyPairRequest::Encode(WireWriter& w) const {
  w.U32(session);
  mechanism.Encode(w);
  EncodeTemplate(w, publicTemplate);
  EncodeTemplate(w, privateTemplate);
}

bool GenerateKeyPairRequest::Decode(WireReader& r) {
  session = r.U32();
  mechanism.Decode(r);
  DecodeTemplate(r, &publicTemplate);
  return DecodeTemplate(r, &privateTemplate);
}

void OperationInitRequest::Encode(WireWriter& w) const {
  w.U32(session);
  mechanism.Encode(w);
  w.U32(key);
}

bool OperationInitRequest::Decode(WireReader& r) {
  session = r.U32();
  mechanism.Decode(r);
  key = r.U32();
  return r.ok();
}

void DataRequest::Encode(WireWriter& w) const {
  w.U32(session);
  data.Encode(w);
  w.Bool(wantOutput);
  w.U32(capacity);
}

bool DataRequest::Decode(WireReader& r) {
  session = r.U32();
  data.Decode(r);
  wantOutput = r.Bool();
  capacity = r.U32();
  return r.ok();
}

void StatusReply::Encode(WireWriter& w) const { w.U32(rv); }

bool StatusReply::Decode(WireReader& r) {
  rv = r.U32();
  return r.ok();
}

void HelloReply::Encode(WireWriter& w) const {
  w.U32(rv);
  w.U32(version);
}

bool HelloReply::Decode(WireReader& r) {
  rv = r.U32();
  version = r.U32();
  return r.ok();
}

void ControlReply::Encode(WireWriter& w) const {
  w.U32(rv);
  w.Text(text);
}

bool ControlReply::Decode(WireReader& r) {
  rv = r.U32();
  text = r.Text();
  return r.ok();
}

void EncodeRecord(WireWriter& w, const WireInfo& info) {
  EncodeVersion(w, info.cryptokiVersion);
  w.Raw(info.manufacturerId, sizeof info.manufacturerId);
  w.U32(info.flags);
  w.Raw(info.libraryDescription, sizeof info.libraryDescription);
  EncodeVersion(w, info.libraryVersion);
}

void DecodeRecord(WireReader& r, WireInfo* info) {
  DecodeVersion(r, &info->cryptokiVersion);
  r.Raw(info->manufacturerId, sizeof info->manufacturerId);
  info->flags = r.U32();
  r.Raw(info->libraryDescription, sizeof info->libraryDescription);
  DecodeVersion(r, &info->libraryVersion);
}

void EncodeRecord(WireWriter& w, const WireSlotInfo& info) {
  w.Raw(info.slotDescription, sizeof info.slotDescription);
  w.Raw(info.manufacturerId, sizeof info.manufacturerId);
  w.U32(info.flags);
  EncodeVersion(w, info.hardwareVersion);
  EncodeVersion(w, info.firmwareVersion);
}

void DecodeRecord(WireReader& r, WireSlotInfo* info) {
  r.Raw(info->slotDescription, sizeof info->slotDescription);
  r.Raw(info->manufacturerId, sizeof info->manufacturerId);
  info->flags = r.U32();
  DecodeVersion(r, &info->hardwareVersion);
  DecodeVersion(r, &info->firmwareVersion);
}

void EncodeRecord(WireWriter& w, const WireTokenInfo& info) {
  w.Raw(info.label, sizeof info.label);
  w.Raw(info.manufacturerId, sizeof info.manufacturerId);
  w.Raw(info.model, sizeof info.model);
  w.Raw(info.serialNumber, sizeof info.serialNumber);
  for (uint32_t v : {info.flags, info.maxSessionCount, info.sessionCount, info.maxRwSessionCount,
                     info.rwSessionCount, info.maxPinLen, info.minPinLen, info.totalPublicMemory,
                     info.freePublicMemory, info.totalPrivateMemory, info.freePrivateMemory})
    w.U32(v);
  EncodeVersion(w, info.hardwareVersion);
  EncodeVersion(w, info.firmwareVersion);
  w.Raw(info.utcTime, sizeof info.utcTime);
}

void DecodeRecord(WireReader& r, WireTokenInfo* info) {
  r.Raw(info->label, sizeof info->label);
  r.Raw(info->manufacturerId, sizeof info->manufacturerId);
  r.Raw(info->model, sizeof info->model);
  r.Raw(info->serialNumber, sizeof info->serialNumber);
  for (uint32_t* v : {&info->flags, &info->maxSessionCount, &info->sessionCount,
                      &info->maxRwSessionCount, &info->rwSessionCount, &info->maxPinLen,
                      &info->minPinLen, &info->totalPublicMemory, &info->freePublicMemory,
                      &info->totalPrivateMemory, &info->freePrivateMemory})
    *v = r.U32();
  DecodeVersion(r, &info->hardwareVersion);
  DecodeVersion(r, &info->firmwareVersion);
  r.Raw(info->utcTime, sizeof info->utcTime);
}

void EncodeRecord(WireWriter& w, const WireSessionInfo& info) {
  for (uint32_t v : {info.slotId, info.state, info.flags, info.deviceError}) w.U32(v);
}

void DecodeRecord(WireReader& r, WireSessionInfo* info) {
  for (uint32_t* v : {&info->slotId, &info->state, &info->flags, &info->deviceError}) *v = r.U32();
}

void EncodeRecord(WireWriter& w, const WireMechanismInfo& info) {
  for (uint32_t v : {info.minKeySize, info.maxKeySize, info.flags}) w.U32(v);
}

void DecodeRecord(WireReader& r, WireMechanismInfo* info) {
  for (uint32_t* v : {&info->minKeySize, &info->maxKeySize, &info->flags}) *v = r.U32();
}

void ListReply::Encode(WireWriter& w) const {
  w.U32(rv);
  w.U32(count);
  w.U32(static_cast<uint32_t>(ids.size()));
  for (uint32_t id : ids) w.U32(id);
}

bool ListReply::Decode(WireReader& r) {
  rv = r.U32();
  count = r.U32();
  uint32_t n = r.Count(kIdSize);
  ids.clear();
  ids.reserve(n);
  for (uint32_t i = 0; i < n && r.ok(); ++i) ids.push_back(r.U32());
  return r.ok();
}

void HandleReply::Encode(WireWriter& w) const {
  w.U32(rv);
  w.U32(handle);
}

bool HandleReply::Decode(WireReader& r) {
  rv = r.U32();
  handle = r.U32();
  return r.ok();
}

void KeyPairReply::Encode(WireWriter& w) const {
  w.U32(rv);
  w.U32(publicKey);
  w.U32(privateKey);
}

bool KeyPairReply::Decode(WireReader& r) {
  rv = r.U32();
  publicKey = r.U32();
  privateKey = r.U32();
  return r.ok();
}

void AttributesReply::Encode(WireWriter& w) const {
  w.U32(rv);
  EncodeTemplate(w, attributes);
}

bool AttributesReply::Decode(WireReader& r) {
  rv = r.U32();
  return DecodeTemplate(r, &attributes);
}

void DataReply::Encode(WireWriter& w) const {
  w.U32(rv);
  w.U32(length);
  output.Encode(w);
}

bool DataReply::Decode(WireReader& r) {
  rv = r.U32();
  length = r.U32();
  return output.Decode(r);
}

}  // namespace nivra::p11wire
