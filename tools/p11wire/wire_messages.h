#pragma once
// Bodies of the forwarding link's requests and replies. Every PKCS#11 CK_ULONG travels as 32 bits,
// the width the Windows caller has; kWireUnavailable stands for CK_UNAVAILABLE_INFORMATION. Each
// reply starts with the 32-bit PKCS#11 return value `rv`; the fields after it are always encoded,
// and mean something only where the PKCS#11 function defines them for that return value.
//
// Decode(r) reads one message and reports whether the reader is still good; a caller that owns a
// whole body also checks r.AtEnd(), so trailing bytes are refused.
#include <cstdint>
#include <string>
#include <vector>

#include "tools/p11wire/wire_buffer.h"

namespace nivra::p11wire {

inline constexpr uint32_t kWireProtocolVersion = 3;
inline constexpr uint32_t kWireUnavailable = 0xFFFFFFFFu;

// A pointer-and-length argument; `present` mirrors a non-null pointer.
struct WireOptBytes {
  bool present = false;
  std::vector<uint8_t> bytes;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

// One CK_ATTRIBUTE. `hasValue` mirrors a non-null pValue.
// - In a template (create, search, set, key generation) `value` holds `length` bytes when
//   hasValue, and is empty otherwise.
// - In an attribute query `length` is the caller's capacity and `value` stays empty.
// - In a query's answer `length` is the module's ulValueLen (kWireUnavailable when it gave
//   CK_UNAVAILABLE_INFORMATION) and `value` holds the bytes when the caller gave a buffer and
//   they fitted.
struct WireAttribute {
  uint32_t type = 0;
  bool hasValue = false;
  uint32_t length = 0;
  std::vector<uint8_t> value;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};
using WireTemplate = std::vector<WireAttribute>;

struct WireMechanism {
  uint32_t type = 0;
  WireOptBytes parameter;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

struct WireVersion {
  uint8_t major = 0;
  uint8_t minor = 0;
};

struct WireInfo {
  WireVersion cryptokiVersion;
  uint8_t manufacturerId[32] = {};
  uint32_t flags = 0;
  uint8_t libraryDescription[32] = {};
  WireVersion libraryVersion;
};

struct WireSlotInfo {
  uint8_t slotDescription[64] = {};
  uint8_t manufacturerId[32] = {};
  uint32_t flags = 0;
  WireVersion hardwareVersion;
  WireVersion firmwareVersion;
};

struct WireTokenInfo {
  uint8_t label[32] = {};
  uint8_t manufacturerId[32] = {};
  uint8_t model[16] = {};
  uint8_t serialNumber[16] = {};
  uint32_t flags = 0;
  uint32_t maxSessionCount = 0;
  uint32_t sessionCount = 0;
  uint32_t maxRwSessionCount = 0;
  uint32_t rwSessionCount = 0;
  uint32_t maxPinLen = 0;
  uint32_t minPinLen = 0;
  uint32_t totalPublicMemory = 0;
  uint32_t freePublicMemory = 0;
  uint32_t totalPrivateMemory = 0;
  uint32_t freePrivateMemory = 0;
  WireVersion hardwareVersion;
  WireVersion firmwareVersion;
  uint8_t utcTime[16] = {};
};

struct WireSessionInfo {
  uint32_t slotId = 0;
  uint32_t state = 0;
  uint32_t flags = 0;
  uint32_t deviceError = 0;
};

struct WireMechanismInfo {
  uint32_t minKeySize = 0;
  uint32_t maxKeySize = 0;
  uint32_t flags = 0;
};

// ---- Requests ----

struct HelloRequest {
  uint32_t version = kWireProtocolVersion;
  uint64_t clientId = 0;  // groups the connections of one process
  // The host's process id of that process (0: not known). Under Wine a finished process's
  // sockets can stay open in Wine's server, so the helper asks the host whether it still runs.
  uint32_t processId = 0;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

struct ControlRequest {
  std::string command;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

// C_Initialize: whether the caller passed a CK_C_INITIALIZE_ARGS, its flags, and whether it
// offered its own mutex functions (all four; the forwarding module refuses a partial set).
struct InitializeRequest {
  bool hasArguments = false;
  uint32_t flags = 0;
  bool mutexFunctions = false;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

// C_Finalize, C_GetInfo.
struct EmptyRequest {
  void Encode(WireWriter&) const {}
  bool Decode(WireReader& r) { return r.ok(); }
};

// C_GetSlotInfo, C_GetTokenInfo, C_CloseAllSessions.
struct SlotRequest {
  uint32_t slot = 0;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

// C_CloseSession, C_GetSessionInfo, C_Logout, C_FindObjectsFinal.
struct SessionRequest {
  uint32_t session = 0;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

// C_GetSlotList (uses tokenPresent) and C_GetMechanismList (uses slot). `wantList` mirrors a
// non-null list pointer and `capacity` is the caller's *pulCount.
struct ListRequest {
  uint32_t slot = 0;
  bool tokenPresent = false;
  bool wantList = false;
  uint32_t capacity = 0;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

struct WaitForSlotEventRequest {
  uint32_t flags = 0;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

struct MechanismInfoRequest {
  uint32_t slot = 0;
  uint32_t mechanism = 0;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

struct InitTokenRequest {
  uint32_t slot = 0;
  WireOptBytes soPin;
  WireOptBytes label;  // 32 blank-padded bytes when present
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

// C_Login (uses userType) and C_InitPIN.
struct PinRequest {
  uint32_t session = 0;
  uint32_t userType = 0;
  WireOptBytes pin;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

struct SetPinRequest {
  uint32_t session = 0;
  WireOptBytes oldPin;
  WireOptBytes newPin;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

struct OpenSessionRequest {
  uint32_t slot = 0;
  uint32_t flags = 0;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

// C_CreateObject and C_FindObjectsInit (object unused), C_SetAttributeValue and
// C_GetAttributeValue (a query template).
struct TemplateRequest {
  uint32_t session = 0;
  uint32_t object = 0;
  WireTemplate attributes;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

// C_DestroyObject.
struct ObjectRequest {
  uint32_t session = 0;
  uint32_t object = 0;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

struct FindObjectsRequest {
  uint32_t session = 0;
  uint32_t maxObjects = 0;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

struct GenerateKeyPairRequest {
  uint32_t session = 0;
  WireMechanism mechanism;
  WireTemplate publicTemplate;
  WireTemplate privateTemplate;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

// C_SignInit, C_DecryptInit, C_EncryptInit.
struct OperationInitRequest {
  uint32_t session = 0;
  WireMechanism mechanism;
  uint32_t key = 0;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

// C_Sign, C_Decrypt, C_Encrypt (input in `data`), C_GenerateRandom (no input; capacity is the
// number of bytes wanted). `wantOutput` mirrors a non-null output pointer and `capacity` is the
// caller's output length.
struct DataRequest {
  uint32_t session = 0;
  WireOptBytes data;
  bool wantOutput = false;
  uint32_t capacity = 0;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

// ---- Replies ----

struct StatusReply {
  uint32_t rv = 0;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

struct HelloReply {
  uint32_t rv = 0;
  uint32_t version = kWireProtocolVersion;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

struct ControlReply {
  uint32_t rv = 0;
  std::string text;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

// Encoding of the fixed-layout records that the information calls return.
void EncodeRecord(WireWriter& w, const WireInfo& info);
void DecodeRecord(WireReader& r, WireInfo* info);
void EncodeRecord(WireWriter& w, const WireSlotInfo& info);
void DecodeRecord(WireReader& r, WireSlotInfo* info);
void EncodeRecord(WireWriter& w, const WireTokenInfo& info);
void DecodeRecord(WireReader& r, WireTokenInfo* info);
void EncodeRecord(WireWriter& w, const WireSessionInfo& info);
void DecodeRecord(WireReader& r, WireSessionInfo* info);
void EncodeRecord(WireWriter& w, const WireMechanismInfo& info);
void DecodeRecord(WireReader& r, WireMechanismInfo* info);

// C_GetInfo, C_GetSlotInfo, C_GetTokenInfo, C_GetSessionInfo, C_GetMechanismInfo.
template <class Record>
struct RecordReply {
  uint32_t rv = 0;
  Record info;
  void Encode(WireWriter& w) const {
    w.U32(rv);
    EncodeRecord(w, info);
  }
  bool Decode(WireReader& r) {
    rv = r.U32();
    DecodeRecord(r, &info);
    return r.ok();
  }
};
using InfoReply = RecordReply<WireInfo>;
using SlotInfoReply = RecordReply<WireSlotInfo>;
using TokenInfoReply = RecordReply<WireTokenInfo>;
using SessionInfoReply = RecordReply<WireSessionInfo>;
using MechanismInfoReply = RecordReply<WireMechanismInfo>;

// C_GetSlotList, C_GetMechanismList, C_FindObjects: `count` is the value for *pulCount; `ids`
// holds the entries the caller receives (empty for a size query or a too-small list).
struct ListReply {
  uint32_t rv = 0;
  uint32_t count = 0;
  std::vector<uint32_t> ids;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

// C_OpenSession (session), C_CreateObject (object), C_WaitForSlotEvent (slot).
struct HandleReply {
  uint32_t rv = 0;
  uint32_t handle = 0;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

struct KeyPairReply {
  uint32_t rv = 0;
  uint32_t publicKey = 0;
  uint32_t privateKey = 0;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

// C_GetAttributeValue: one answer per queried attribute, in order (see WireAttribute), or none
// when the call failed before looking at the template.
struct AttributesReply {
  uint32_t rv = 0;
  WireTemplate attributes;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

// C_Sign, C_Decrypt, C_Encrypt, C_GenerateRandom: `length` is the value for the caller's length
// argument, `output.present` says whether bytes were produced for the caller's buffer.
struct DataReply {
  uint32_t rv = 0;
  uint32_t length = 0;
  WireOptBytes output;
  void Encode(WireWriter& w) const;
  bool Decode(WireReader& r);
};

}  // namespace nivra::p11wire
