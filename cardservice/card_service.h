// The service's view of the module's tokens: the published slot list and the card commands of
// the slot channels, each run against the token of its slot.
#pragma once
#include <p11-kit/pkcs11.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "cardservice/slot_state.h"
#include "cardservice/wire_status.h"
#include "service/frames/card_commands.h"

namespace nivra::cardservice {

// One published slot.
struct PublishedSlot {
  uint32_t slotId = 0;
  bool tokenPresent = false;
  std::string name;         // the slot description without trailing blanks
  uint32_t tokenFlags = 0;  // the token's PKCS#11 flags (low 32 bits), 0 without a token
  uint8_t serial[16] = {};  // the token's serial number field
};

// A card command's result: the status, and with status 0 the response fields.
struct CardAnswer {
  WireStatus status = kStatusOk;
  frames::CardResponse response;
};

// What one channel has proved: for each slot, the login epoch at which it gave a good PIN.
using ChannelLogins = std::map<uint32_t, uint64_t>;

class CardService {
 public:
  // `serialise`: the module cannot lock for itself, so one command runs at a time.
  CardService(CK_FUNCTION_LIST* p11, bool serialise);

  // Every slot of the module (with or without a token) whose ID fits 32 bits. False with the
  // module's error when the list cannot be read.
  bool ListSlots(std::vector<PublishedSlot>* slots, CK_RV* error);
  // One slot; false when the module does not know it.
  bool DescribeSlot(uint32_t slotId, PublishedSlot* slot);

  // Runs one card command for `slotId` on behalf of a channel.
  CardAnswer Execute(ChannelLogins& logins, uint32_t slotId, uint16_t command,
                     const frames::CardRequest& request);

 private:
  CK_FUNCTION_LIST* p11_;
  bool serialise_;
  std::mutex serialMutex_;
  SlotRegistry slots_;
};

}  // namespace nivra::cardservice
