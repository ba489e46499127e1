#pragma once
// Which request and reply body each operation carries. Both ends of the link go through this
// table, so a mismatch between what one side writes and the other reads does not compile.
#include "tools/p11wire/wire_messages.h"
#include "tools/p11wire/wire_ops.h"

namespace nivra::p11wire {

template <WireOp op>
struct WireShape;

#define NIVRA_WIRE_SHAPE(op_, request_, reply_) \
  template <>                                   \
  struct WireShape<WireOp::op_> {               \
    using Request = request_;                   \
    using Reply = reply_;                       \
  }

NIVRA_WIRE_SHAPE(kHello, HelloRequest, HelloReply);
NIVRA_WIRE_SHAPE(kControl, ControlRequest, ControlReply);
NIVRA_WIRE_SHAPE(kInitialize, InitializeRequest, StatusReply);
NIVRA_WIRE_SHAPE(kFinalize, EmptyRequest, StatusReply);
NIVRA_WIRE_SHAPE(kGetInfo, EmptyRequest, InfoReply);
NIVRA_WIRE_SHAPE(kGetSlotList, ListRequest, ListReply);
NIVRA_WIRE_SHAPE(kGetSlotInfo, SlotRequest, SlotInfoReply);
NIVRA_WIRE_SHAPE(kGetTokenInfo, SlotRequest, TokenInfoReply);
NIVRA_WIRE_SHAPE(kWaitForSlotEvent, WaitForSlotEventRequest, HandleReply);
NIVRA_WIRE_SHAPE(kGetMechanismList, ListRequest, ListReply);
NIVRA_WIRE_SHAPE(kGetMechanismInfo, MechanismInfoRequest, MechanismInfoReply);
NIVRA_WIRE_SHAPE(kInitToken, InitTokenRequest, StatusReply);
NIVRA_WIRE_SHAPE(kInitPIN, PinRequest, StatusReply);
NIVRA_WIRE_SHAPE(kSetPIN, SetPinRequest, StatusReply);
NIVRA_WIRE_SHAPE(kOpenSession, OpenSessionRequest, HandleReply);
NIVRA_WIRE_SHAPE(kCloseSession, SessionRequest, StatusReply);
NIVRA_WIRE_SHAPE(kCloseAllSessions, SlotRequest, StatusReply);
NIVRA_WIRE_SHAPE(kGetSessionInfo, SessionRequest, SessionInfoReply);
NIVRA_WIRE_SHAPE(kLogin, PinRequest, StatusReply);
NIVRA_WIRE_SHAPE(kLogout, SessionRequest, StatusReply);
NIVRA_WIRE_SHAPE(kCreateObject, TemplateRequest, HandleReply);
NIVRA_WIRE_SHAPE(kDestroyObject, ObjectRequest, StatusReply);
NIVRA_WIRE_SHAPE(kGetAttributeValue, TemplateRequest, AttributesReply);
NIVRA_WIRE_SHAPE(kSetAttributeValue, TemplateRequest, StatusReply);
NIVRA_WIRE_SHAPE(kFindObjectsInit, TemplateRequest, StatusReply);
NIVRA_WIRE_SHAPE(kFindObjects, FindObjectsRequest, ListReply);
NIVRA_WIRE_SHAPE(kFindObjectsFinal, SessionRequest, StatusReply);
NIVRA_WIRE_SHAPE(kGenerateKeyPair, GenerateKeyPairRequest, KeyPairReply);
NIVRA_WIRE_SHAPE(kSignInit, OperationInitRequest, StatusReply);
NIVRA_WIRE_SHAPE(kSign, DataRequest, DataReply);
NIVRA_WIRE_SHAPE(kDecryptInit, OperationInitRequest, StatusReply);
NIVRA_WIRE_SHAPE(kDecrypt, DataRequest, DataReply);
NIVRA_WIRE_SHAPE(kEncryptInit, OperationInitRequest, StatusReply);
NIVRA_WIRE_SHAPE(kEncrypt, DataRequest, DataReply);
NIVRA_WIRE_SHAPE(kGenerateRandom, DataRequest, DataReply);

#undef NIVRA_WIRE_SHAPE

// Encodes a message body.
template <class Message>
std::vector<uint8_t> EncodeBody(const Message& m) {
  WireWriter w;
  m.Encode(w);
  return w.Take();
}

// Decodes a whole body into `m`; false when it is malformed, truncated or has trailing bytes.
template <class Message>
bool DecodeBody(const std::vector<uint8_t>& body, Message* m) {
  WireReader r(body);
  return m->Decode(r) && r.AtEnd();
}

}  // namespace nivra::p11wire
