// A service card: listed by the card service (0x4001) but reached directly on its own address,
// port 45452, where the module opens the session by sending a key of its own choosing to the
// card's public key. Commands travel as they are (no outer frame), their bodies encrypted.
#pragma once
#include <winsock2.h>

#include <memory>
#include <string>

#include "crypto/cipher.h"
#include "service/device_backend.h"
#include "service/frames/device_records.h"

namespace nivra::service {

class SvcDevice : public ServiceDevice {
 public:
  explicit SvcDevice(const frames::CardRecord& entry) : entry_(entry) {}
  ~SvcDevice() override { Close(); }

  // A copy of the entry with no connection.
  std::unique_ptr<provider::CardDevice> Clone() const override;
  std::string Name() const override { return entry_.name; }

  // SvcTransact: SvcSessionOpen, then the request wrapped under the session and its answer
  // unwrapped; a failed send or receive closes the connection and gives NTE_FAIL; an answer of
  // another command NTE_BAD_DATA.
  Status Transact(const uint8_t* request, size_t len, frames::FrameView* response,
                  RequestBuffers& list) override;
  // SvcEnsureAuth: the card's login state, the cached PIN, NTE_SILENT_CONTEXT for a silent
  // context, else a confirmation on the card.
  Status Authenticate(ProviderContext& ctx, bool lapsed) override;
  std::string LockName() const override;
  Status Relogin(ProviderContext& ctx) override { return Authenticate(ctx, false); }
  void Close() override;

  // SvcSessionOpen: nothing while a session is kept (no liveness check). Otherwise connects to
  // the card's address (NTE_NOT_FOUND when it does not answer), offers the card name and takes
  // the card's public key (a refusal's status is returned and the connection closed; a transport
  // failure or another answer NTE_FAIL), then sends a new session key from the operating
  // system's generator to that key and waits for the acknowledgement (its non-zero status is
  // returned). Every failure closes the connection.
  Status SessionOpen();

 private:
  Status KeyExchange();

  frames::CardRecord entry_;
  SOCKET socket_ = INVALID_SOCKET;
  uint32_t sessionState_ = 0;
  crypto::CipherHandle cipher_ = 0;
};

}  // namespace nivra::service
