#include "tools/p11fwd/fwd_convert.h"

#include <cstring>

namespace nivra::p11fwd {

using p11wire::WireAttribute;
using p11wire::WireTemplate;

p11wire::WireOptBytes OptionalBytes(const void* data, CK_ULONG length) {
  p11wire::WireOptBytes bytes;
  bytes.present = data != nullptr;
  if (data && length != 0) {
    const auto* p = static_cast<const uint8_t*>(data);
    bytes.bytes.assign(p, p + length);
  }
  return bytes;
}

WireTemplate TemplateValues(const CK_ATTRIBUTE* attributes, CK_ULONG count) {
  WireTemplate wire(count);
  for (CK_ULONG i = 0; i < count; ++i) {
    WireAttribute& a = wire[i];
    a.type = attributes[i].type;
    a.hasValue = attributes[i].pValue != nullptr;
    a.length = attributes[i].ulValueLen;
    if (a.hasValue && a.length != 0) {
      const auto* p = static_cast<const uint8_t*>(attributes[i].pValue);
      a.value.assign(p, p + a.length);
    }
  }
  return wire;
}

WireTemplate TemplateQuery(const CK_ATTRIBUTE* attributes, CK_ULONG count) {
  WireTemplate wire(count);
  for (CK_ULONG i = 0; i < count; ++i) {
    wire[i].type = attributes[i].type;
    wire[i].hasValue = attributes[i].pValue != nullptr;
    wire[i].length = attributes[i].ulValueLen;
  }
  return wire;
}

bool ApplyAnswers(const WireTemplate& answers, CK_ATTRIBUTE* attributes, CK_ULONG count) {
  if (answers.size() != count) return false;
  for (CK_ULONG i = 0; i < count; ++i) {
    const WireAttribute& a = answers[i];
    CK_ATTRIBUTE& t = attributes[i];
    if (a.type != t.type) return false;
    if (!a.value.empty()) {
      if (!t.pValue || a.value.size() > t.ulValueLen) return false;
      std::memcpy(t.pValue, a.value.data(), a.value.size());
    }
    t.ulValueLen = a.length;
  }
  return true;
}

CK_RV ApplyOutput(const p11wire::DataReply& reply, CK_BYTE* output, CK_ULONG capacity,
                  CK_ULONG* length) {
  if (reply.rv != CKR_OK && reply.rv != CKR_BUFFER_TOO_SMALL) return reply.rv;
  if (reply.rv == CKR_OK && output) {
    const std::vector<uint8_t>& bytes = reply.output.bytes;
    if (!reply.output.present || bytes.size() > capacity || bytes.size() != reply.length)
      return CKR_DEVICE_ERROR;
    if (!bytes.empty()) std::memcpy(output, bytes.data(), bytes.size());
  }
  *length = reply.length;
  return reply.rv;
}

p11wire::WireMechanism MechanismOf(const CK_MECHANISM& mechanism) {
  p11wire::WireMechanism wire;
  wire.type = mechanism.mechanism;
  wire.parameter = OptionalBytes(mechanism.pParameter, mechanism.ulParameterLen);
  return wire;
}

namespace {

void CopyVersion(const p11wire::WireVersion& from, CK_VERSION* to) {
  to->major = from.major;
  to->minor = from.minor;
}

template <size_t N>
void CopyField(const uint8_t (&from)[N], unsigned char (&to)[N]) {
  std::memcpy(to, from, N);
}

}  // namespace

void CopyInfo(const p11wire::WireInfo& from, CK_INFO* to) {
  CopyVersion(from.cryptokiVersion, &to->cryptokiVersion);
  CopyField(from.manufacturerId, to->manufacturerID);
  to->flags = from.flags;
  CopyField(from.libraryDescription, to->libraryDescription);
  CopyVersion(from.libraryVersion, &to->libraryVersion);
}

void CopySlotInfo(const p11wire::WireSlotInfo& from, CK_SLOT_INFO* to) {
  CopyField(from.slotDescription, to->slotDescription);
  CopyField(from.manufacturerId, to->manufacturerID);
  to->flags = from.flags;
  CopyVersion(from.hardwareVersion, &to->hardwareVersion);
  CopyVersion(from.firmwareVersion, &to->firmwareVersion);
}

void CopyTokenInfo(const p11wire::WireTokenInfo& from, CK_TOKEN_INFO* to) {
  CopyField(from.label, to->label);
  CopyField(from.manufacturerId, to->manufacturerID);
  CopyField(from.model, to->model);
  CopyField(from.serialNumber, to->serialNumber);
  to->flags = from.flags;
  to->ulMaxSessionCount = from.maxSessionCount;
  to->ulSessionCount = from.sessionCount;
  to->ulMaxRwSessionCount = from.maxRwSessionCount;
  to->ulRwSessionCount = from.rwSessionCount;
  to->ulMaxPinLen = from.maxPinLen;
  to->ulMinPinLen = from.minPinLen;
  to->ulTotalPublicMemory = from.totalPublicMemory;
  to->ulFreePublicMemory = from.freePublicMemory;
  to->ulTotalPrivateMemory = from.totalPrivateMemory;
  to->ulFreePrivateMemory = from.freePrivateMemory;
  CopyVersion(from.hardwareVersion, &to->hardwareVersion);
  CopyVersion(from.firmwareVersion, &to->firmwareVersion);
  CopyField(from.utcTime, to->utcTime);
}

void CopySessionInfo(const p11wire::WireSessionInfo& from, CK_SESSION_INFO* to) {
  to->slotID = from.slotId;
  to->state = from.state;
  to->flags = from.flags;
  to->ulDeviceError = from.deviceError;
}

}  // namespace nivra::p11fwd
