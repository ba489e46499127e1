// Fuzzes every parser of the card service frame codec. The first input byte picks the parser,
// the rest is its input. Whatever parses must build again to the same bytes where the codec
// builds that direction; nothing may read outside its input.
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
constexpr size_t kCommandCount = sizeof(kCardCommands) / sizeof(kCardCommands[0]);

// A small fixed session key: the cipher paths are fuzzed, not the key.
const uint8_t kKey[kSessionKeySize] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

void FuzzCardBodies(const uint8_t* data, size_t size) {
  if (size < 1) return;
  const uint16_t command = kCardCommands[data[0] % kCommandCount];
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
  if (ParseCardResponse(command, body, len, len, &response) == FrameStatus::kOk) {
    Bytes frame;
    const FrameStatus built = BuildCardResponse(command, 0, response, &frame);
    // The enumeration answer keeps only the name before its first NUL, and a limits answer is
    // rebuilt in one of its two lengths; others rebuild exactly.
    const bool limitsOfOtherLength =
        command == kCmdCardLimits && len != kLimitsMinBody && len != kLimitsFullBody;
    if (command != kCmdEnumContainers && !limitsOfOtherLength) {
      Check(built == FrameStatus::kOk && frame.size() == len + kHeaderSize &&
            std::equal(frame.begin() + kHeaderSize, frame.end(), body));
    }
  }
}

void FuzzSlots(const uint8_t* data, size_t size) {
  size_t announced = 0;
  std::vector<SlotRecord> records;
  if (ParseSlotListBody(data, size, 256, &announced, &records) == FrameStatus::kOk) {
    Check(records.size() == (announced < 256 ? announced : 256));
  }
  SlotRecord record;
  ParseSlotInfoBody(data, size, &record);
  uint32_t slotId = 0;
  FrameView inner;
  if (ParseSlotFrameBody(data, size, &slotId, &inner) == FrameStatus::kOk) {
    Bytes frame;
    Check(BuildSlotFrame(slotId, data + 4, size - 4, &frame) == FrameStatus::kOk);
  }
  ParseSlotInfoRequest(data, size, &slotId);
}

// Lists rebuild to lists that parse to the same records.
template <typename Record, typename Parse, typename Build>
void FuzzList(const uint8_t* data, size_t size, Parse parse, Build build) {
  std::vector<Record> records;
  if (parse(data, size, &records) != FrameStatus::kOk) return;
  Bytes frame;
  if (build(records, &frame) != FrameStatus::kOk) return;  // a rebuilt string area may overflow
  std::vector<Record> again;
  Check(parse(frame.data() + kHeaderSize, frame.size() - kHeaderSize, &again) == FrameStatus::kOk);
  Check(again.size() == records.size());
  for (size_t i = 0; i < records.size(); ++i) {
    Check(again[i].name == records[i].name && again[i].displayName == records[i].displayName);
  }
}

void FuzzDevices(const uint8_t* data, size_t size) {
  FuzzList<DeviceRecord>(data, size, ParseDeviceListBody, BuildDeviceListAnswer);
  FuzzList<CardRecord>(data, size, ParseCardListBody, BuildCardListAnswer);
  std::string name;
  FrameView inner;
  if (ParseDeviceFrameBody(data, size, &name, &inner) == FrameStatus::kOk) {
    Bytes frame;
    Check(BuildDeviceFrame(name, data + kNameFieldSize, size - kNameFieldSize, &frame) ==
          FrameStatus::kOk);
  }
  if (ParseKeyOfferBody(data, size, &name) == FrameStatus::kOk) {
    Bytes frame;
    Check(BuildKeyOffer(name, &frame) == FrameStatus::kOk);
  }
  const uint8_t* der = nullptr;
  size_t derLen = 0;
  if (ParseCardKeyFrame(data, size, &der, &derLen) == FrameStatus::kOk) {
    Check(der + derLen == data + size);
  }
  ParseCardSessionAck(data, size);
  const uint8_t* encrypted = nullptr;
  ParseCardSessionKeyFrame(data, size, size > 10 ? size - 10 : 0, &encrypted);
  CardLimits limits;
  ReadCardLimits(data, size, &limits);
  bool flag = false;
  if (size >= kModeTokenSize) ReadModeToken(data, size, &flag);
}

void FuzzSession(const uint8_t* data, size_t size) {
  const uint8_t* der = nullptr;
  size_t derLen = 0;
  if (ParseHelloBody(data, size, &der, &derLen) == FrameStatus::kOk) {
    // The service's side: encrypting a secret to whatever key the hello carries.
    const uint8_t secret[kSessionSecretSize] = {};
    Bytes frame;
    if (derLen < 80) BuildSessionKeyFrame(der, derLen, secret, sizeof(secret), &frame);
  }
  const uint8_t* encrypted = nullptr;
  ParseSessionKeyFrame(data, size, size > 10 ? size - 10 : 0, &encrypted);
  CipherOwner cipher;
  if (OpenSessionSecret(data, size, cipher.Out()) == FrameStatus::kOk) Check(cipher.Get() != 0);
}

void FuzzCipher(const uint8_t* data, size_t size) {
  CipherOwner cipher;
  Check(nivra::crypto::CipherCreateTdes2(cipher.Out(), kKey) == nivra::crypto::kOk);
  Bytes plain;
  if (UnwrapFrame(cipher.Get(), data, size, &plain) == FrameStatus::kOk) {
    Bytes again;
    if (plain.size() > kHeaderSize) {
      Check(WrapFrame(cipher.Get(), plain.data(), plain.size(), &again) == FrameStatus::kOk);
      Check(again.size() == size && std::equal(again.begin(), again.end(), data));
    }
  }
  Bytes wrapped;
  if (WrapFrame(cipher.Get(), data, size, &wrapped) == FrameStatus::kOk) {
    Bytes back;
    Check(UnwrapFrame(cipher.Get(), wrapped.data(), wrapped.size(), &back) == FrameStatus::kOk);
    Check(back.size() == size && std::equal(back.begin(), back.end(), data));
  }
  FrameView view;
  ParseFrame(data, size, &view);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const uint8_t* rest = data + 1;
  const size_t len = size - 1;
  switch (data[0] % 5) {
    case 0: FuzzCardBodies(rest, len); break;
    case 1: FuzzSlots(rest, len); break;
    case 2: FuzzSession(rest, len); break;
    case 4: FuzzDevices(rest, len); break;
    default: FuzzCipher(rest, len); break;
  }
  return 0;
}
