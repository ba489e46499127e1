#pragma once
// Devices and service cards as the provider meets them: a service configured with two devices and
// two cards on the scratch token (the cards on loopback addresses drawn per test, so that
// concurrent runs never meet), and the module's side of a service card's key exchange.
#include <string>

#include "tests/cardservice/service_fixture.h"

namespace nivra::cardtest {

inline constexpr char kPhone[] = "phone-1";      // limits configured, the token's user PIN
inline constexpr char kOldPhone[] = "phone-2";   // default limits, a PIN the token refuses
inline constexpr char kDesk[] = "desk-1";
inline constexpr char kSpare[] = "desk-2";
inline constexpr uint16_t kCardPort = 45452;

// The module's side of a service card connection.
class CardSession {
 public:
  // Connects to address:45452 and offers `name`. Check offerStatus and ready().
  CardSession(const std::string& address, const std::string& name);
  bool ready() const { return ready_; }
  // The status of the card-key answer (0 when the card took the offer); ~0u when none came.
  uint32_t offerStatus() const { return offerStatus_; }
  Client& client() { return client_; }
  // Sends the session-key frame for `secret` (any length) and returns the acknowledgement's
  // status (~0u when none came); status 0 makes the session ready.
  uint32_t SendSecret(const frames::Bytes& secret);
  // Offers a fresh secret from the generator: the session is ready on success.
  bool Establish();
  CardResult Call(uint16_t command, const frames::CardRequest& request = {},
                  size_t blockLength = 0);

 private:
  Client client_;
  frames::Bytes cardKey_;
  frames::CipherOwner cipher_;
  uint32_t offerStatus_ = ~0u;
  bool ready_ = false;
};

class RemoteTest : public ServiceTest {
 protected:
  std::string CardConfig() override;
  // The loopback addresses of the two cards.
  std::string desk_, spare_;
};

}  // namespace nivra::cardtest
