// A card that the provider reaches through the card service, whatever the road: a published
// slot, a Bluetooth device or a service card. The card commands and their operations
// (card_command.h, card_operations.h) are the same on every road; a road supplies the transport
// of one command, its way of authenticating the user, the name of the card's container lock, and
// the context's state on the card.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

#include "pkcs11/slot_device.h"
#include "provider/provider_context.h"
#include "service/frames/frame_header.h"
#include "service/request_buffers.h"

namespace nivra::service {

using provider::ProviderContext;
using provider::Status;

class RemoteCard {
 public:
  virtual ~RemoteCard() = default;

  // Sends one card command frame and returns its plain answer (kept in list), whose command has
  // been checked; its status is the card's result.
  virtual Status Transact(const uint8_t* request, size_t len, frames::FrameView* response,
                          RequestBuffers& list) = 0;
  // Makes sure the user is authenticated before a command that needs it. lapsed: the card has
  // just answered such a command with SCARD_W_CARD_NOT_AUTHENTICATED; success sends it once more.
  virtual Status Authenticate(ProviderContext& ctx, bool lapsed) = 0;
  // The cross-process lock of the card's containers.
  virtual std::string LockName() const = 0;
  // Container names arrive in UTF-8; true when the road hands them on in the ANSI code page.
  virtual bool AnsiContainerNames() const { return false; }

  // The context's state on the card.
  virtual CK_OBJECT_HANDLE& Container() = 0;
  virtual uint32_t& EnumIndex() = 0;
  virtual pkcs11::PrivateResultCache& ResultCache() = 0;
};

// The state every non-slot road keeps in its device record.
struct RemoteCardState {
  CK_OBJECT_HANDLE container = 0;
  uint32_t enumIndex = 0;
  pkcs11::PrivateResultCache cache{};
};

}  // namespace nivra::service
