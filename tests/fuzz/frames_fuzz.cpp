// Fuzzes every parser of the card service frame codec. The first input byte picks the parser,
// the rest is its input. Nothing may read outside its input; card requests must also build again
// to what was parsed, and wrapped frames unwrap to what was wrapped. (Record lists and the other
// builders meet the real card service and provider in the service tests.)
#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <cstdlib>
#include <vector>

#include "crypto/rsa_interface.h"
#include "service/frames/card_commands.h"
#include "service/frames/card_key_exchange.h"
#include "service/frames/card_limits.h"
#include "service/frames/device_records.h"
#include "service/frames/mode_token.h"
#include "service/frames/crypto_guards.h"
#include "service/frames/frame_cipher.h"
#include "service/frames/frame_codes.h"
#include "service/frames/session_handshake.h"
#include "service/frames/slot_records.h"

namespace {

using namespace nivra::frames;

void Check(bool condition) {
  if (!condition) std::abort();
}

constexpr uint16_t kCardCommands[] = {
    kCmdCreateContainer, kCmdEnumContainers, kCmdOpenContainer, kCmdDeleteContainer,
    kCmdLoginState, kCmdVerifyPin, kCmdChangePin, kCmdUnblockPin, kCmdGenerateKeyPair,
    kCmdReadPublicKey, kCmdImportKeyPair, kCmdPrivateKeyOp, kCmdPublicKeyOp,
    kCmdWriteCertificate, kCmdReadCertificate, kCmdInitToken, kCmdInitTokenPlain,
    kCmdAskConfirmation, kCmdEndConfirmation, kCmdCardLimits};

// A small fixed session key: the cipher paths are fuzzed, not the key.
const uint8_t kKey[kSessionKeySize] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

void FuzzCardBodies(const uint8_t* data, size_t size) {
  if (size < 1) return;
  const uint16_t command = kCardCommands[data[0] % std::size(kCardCommands)];
  const uint8_t* body = data + 1;
  const size_t len = size - 1;
  CardRequest request;
  if (ParseCardRequest(command, body, len, &request) == FrameStatus::kOk) {
    Bytes frame;
    Check(BuildCardRequest(command, request, &frame) == FrameStatus::kOk);
    Check(frame.size() == len + kHeaderSize &&
          std::equal(frame.begin() + kHeaderSize, frame.end(), body));
  }
  CardResponse response;
  ParseCardResponse(command, body, len, len, &response);
}

void FuzzRecords(const uint8_t* data, size_t size) {
  size_t announced = 0;
  std::vector<SlotRecord> slots;
  if (ParseSlotListBody(data, size, 256, &announced, &slots) == FrameStatus::kOk) {
    Check(slots.size() == std::min<size_t>(announced, 256));
  }
  SlotRecord slot;
  ParseSlotInfoBody(data, size, &slot);
  uint32_t slotId = 0;
  FrameView inner;
  ParseSlotFrameBody(data, size, &slotId, &inner);
  ParseSlotInfoRequest(data, size, &slotId);
  std::vector<DeviceRecord> devices;
  ParseDeviceListBody(data, size, &devices);
  std::vector<CardRecord> cards;
  ParseCardListBody(data, size, &cards);
  std::string name;
  ParseDeviceFrameBody(data, size, &name, &inner);
  ParseKeyOfferBody(data, size, &name);
  CardLimits limits;
  ReadCardLimits(data, size, &limits);
  bool flag = false;
  if (size >= kModeTokenSize) ReadModeToken(data, size, &flag);
}

void FuzzSession(const uint8_t* data, size_t size) {
  const uint8_t* der = nullptr;
  size_t derLen = 0;
  if (ParseHelloBody(data, size, &der, &derLen) == FrameStatus::kOk && derLen < 80) {
    // The service's side: encrypting a secret to whatever key the hello carries.
    const uint8_t secret[kSessionSecretSize] = {};
    Bytes frame;
    BuildSessionKeyFrame(der, derLen, secret, sizeof(secret), &frame);
  }
  if (ParseCardKeyFrame(data, size, &der, &derLen) == FrameStatus::kOk) {
    Check(der + derLen == data + size);
  }
  ParseCardSessionAck(data, size);
  const uint8_t* encrypted = nullptr;
  ParseCardSessionKeyFrame(data, size, size > 10 ? size - 10 : 0, &encrypted);
  ParseSessionKeyFrame(data, size, size > 10 ? size - 10 : 0, &encrypted);
  CipherOwner cipher;
  if (OpenSessionSecret(data, size, cipher.Out()) == FrameStatus::kOk) Check(cipher.Get() != 0);
}

void FuzzCipher(const uint8_t* data, size_t size) {
  CipherOwner cipher;
  Check(nivra::crypto::CipherCreateTdes2(cipher.Out(), kKey) == nivra::crypto::kOk);
  Bytes plain, again;
  UnwrapFrame(cipher.Get(), data, size, &plain);
  if (WrapFrame(cipher.Get(), data, size, &again) == FrameStatus::kOk) {
    Check(UnwrapFrame(cipher.Get(), again.data(), again.size(), &plain) == FrameStatus::kOk);
    Check(plain.size() == size && std::equal(plain.begin(), plain.end(), data));
  }
  FrameView view;
  ParseFrame(data, size, &view);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using Fuzz = void (*)(const uint8_t*, size_t);
  static const Fuzz kTargets[] = {FuzzCardBodies, FuzzRecords, FuzzSession, FuzzCipher};
  if (size > 0) kTargets[data[0] % std::size(kTargets)](data + 1, size - 1);
  return 0;
}
