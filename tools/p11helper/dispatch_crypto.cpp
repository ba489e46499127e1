// Key generation, single-part signing, decryption and encryption, and random numbers.
#include <algorithm>

#include "tools/p11helper/abi_widths.h"
#include "tools/p11helper/dispatch_support.h"
#include "tools/p11helper/dispatcher.h"
#include "tools/p11wire/wire_ops.h"

namespace nivra::p11helper {

using namespace p11wire;

KeyPairReply Dispatcher::GenerateKeyPair(ClientState& client, const GenerateKeyPairRequest& request) {
  if (CK_RV rv = CheckSession(client, request.session)) return StatusOnly<KeyPairReply>(rv);
  NativeMechanism mechanism(request.mechanism);
  NativeTemplate publicTemplate = NativeTemplate::FromValues(request.publicTemplate);
  NativeTemplate privateTemplate = NativeTemplate::FromValues(request.privateTemplate);
  CK_OBJECT_HANDLE publicKey = 0;
  CK_OBJECT_HANDLE privateKey = 0;
  CK_RV rv = module_->C_GenerateKeyPair(request.session, mechanism.get(), publicTemplate.data(),
                                        publicTemplate.size(), privateTemplate.data(),
                                        privateTemplate.size(), &publicKey, &privateKey);
  if (rv != CKR_OK) return StatusOnly<KeyPairReply>(rv);
  if (!FitsWire(publicKey) || !FitsWire(privateKey)) {
    module_->C_DestroyObject(request.session, publicKey);
    module_->C_DestroyObject(request.session, privateKey);
    return StatusOnly<KeyPairReply>(CKR_GENERAL_ERROR);
  }
  KeyPairReply reply;
  reply.publicKey = static_cast<uint32_t>(publicKey);
  reply.privateKey = static_cast<uint32_t>(privateKey);
  return reply;
}

StatusReply Dispatcher::OperationInit(ClientState& client, uint16_t op,
                                      const OperationInitRequest& request) {
  if (CK_RV rv = CheckSession(client, request.session)) return StatusOnly<StatusReply>(rv);
  NativeMechanism mechanism(request.mechanism);
  CK_C_SignInit init = module_->C_SignInit;
  if (op == static_cast<uint16_t>(WireOp::kDecryptInit)) init = module_->C_DecryptInit;
  if (op == static_cast<uint16_t>(WireOp::kEncryptInit)) init = module_->C_EncryptInit;
  return StatusOnly<StatusReply>(init(request.session, mechanism.get(), request.key));
}

DataReply Dispatcher::OneShot(ClientState& client, uint16_t op, const DataRequest& request) {
  if (CK_RV rv = CheckSession(client, request.session)) return StatusOnly<DataReply>(rv);
  CK_C_Sign call = module_->C_Sign;
  if (op == static_cast<uint16_t>(WireOp::kDecrypt)) call = module_->C_Decrypt;
  if (op == static_cast<uint16_t>(WireOp::kEncrypt)) call = module_->C_Encrypt;
  CK_BYTE spare = 0;
  std::vector<CK_BYTE> output;
  CK_ULONG length = request.capacity;
  if (request.wantOutput) {
    length = std::min(request.capacity, kMaxOutputBuffer);
    output.resize(length + 1);  // + 1 keeps the pointer valid for a capacity of 0
  }
  DataReply reply;
  reply.rv = static_cast<uint32_t>(call(request.session, OptionalPointer(request.data, &spare),
                                        request.data.bytes.size(),
                                        request.wantOutput ? output.data() : nullptr, &length));
  reply.length = NarrowUlong(length);
  if (reply.rv == CKR_OK && request.wantOutput && length < output.size()) {
    reply.output.present = true;
    reply.output.bytes.assign(output.begin(), output.begin() + length);
  }
  return reply;
}

DataReply Dispatcher::GenerateRandom(ClientState& client, const DataRequest& request) {
  if (CK_RV rv = CheckSession(client, request.session)) return StatusOnly<DataReply>(rv);
  if (request.capacity > kMaxOutputBuffer) return StatusOnly<DataReply>(CKR_ARGUMENTS_BAD);
  std::vector<CK_BYTE> output(request.capacity + 1);
  DataReply reply;
  reply.rv = static_cast<uint32_t>(
      module_->C_GenerateRandom(request.session, output.data(), request.capacity));
  reply.length = request.capacity;
  if (reply.rv == CKR_OK) {
    reply.output.present = true;
    reply.output.bytes.assign(output.begin(), output.begin() + request.capacity);
  }
  return reply;
}

}  // namespace nivra::p11helper
