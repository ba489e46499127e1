// The cards that the service presents besides its published slots: Bluetooth devices (listed on
// the service port, reached through device frames on an encrypted channel) and service cards
// (listed on the service port, each reached on a loopback address of its own). Each one is backed
// by a token of the module, named in the card configuration file:
//
//   # kind    name       settings (key=value, a value with blanks in double quotes)
//   device    phone-1    token=my-token pin=1234 display="Anna's phone" max-key=4096
//   card      desk-card  token=my-token pin=1234 display="Desk card" address=127.0.0.2
//
// A device or card is unlocked by a person: when the provider asks for a confirmation, the
// service shows a prompt in its log and a person answers it on the control interface; the
// service then logs the token in with the configured PIN. The unlock holds for the device or
// card as a whole (every connection to it) until the token's login ends or the service stops.
#pragma once
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cardservice/card_service.h"
#include "service/frames/card_limits.h"
#include "service/frames/crypto_guards.h"
#include "service/frames/confirmation_state.h"

namespace nivra::cardservice {

enum class RemoteKind { kDevice, kServiceCard };

// The limits answer (0x2041) of a device or card that the configuration does not change.
frames::CardLimits DefaultLimits();

// The default port of service cards, and the first of their default addresses.
constexpr uint16_t kServiceCardPort = 45452;
constexpr char kFirstServiceCardAddress[] = "127.0.0.2";
// A service card's key pair: the module encrypts each connection's session key to it.
constexpr uint32_t kCardKeyExponent = 65537;
constexpr uint32_t kCardKeyBitsMin = 1024;
// Longest device or card name: the wire's 40-byte name field holds it with its NUL.
constexpr size_t kRemoteNameMax = 39;
// How long a confirmation request waits for a person when the provider stops asking.
constexpr auto kPendingLifetime = std::chrono::seconds(130);

struct RemoteCardConfig {
  RemoteKind kind = RemoteKind::kDevice;
  std::string name;
  std::string display;     // display name (UTF-8); the name when not given
  std::string tokenLabel;  // CKA label of the backing token (trailing blanks ignored)
  std::string pin;         // the user PIN the service logs in with on a confirmation
  std::string address;     // service cards: the loopback address served on
  uint32_t keyBits = 2048; // service cards: the size of the key pair of the key exchange
  frames::CardLimits limits = DefaultLimits();
};

// Reads a card configuration file. False with "FILE:LINE: what" in *error.
bool ReadCardConfig(const std::string& path, std::vector<RemoteCardConfig>* cards,
                    std::string* error);

class RemoteCard {
 public:
  RemoteCard(RemoteCardConfig config, uint32_t slotId)
      : config_(std::move(config)), slotId_(slotId) {}
  const RemoteCardConfig& config() const { return config_; }
  const std::string& name() const { return config_.name; }
  uint32_t slotId() const { return slotId_; }
  // A service card's key pair for its key exchange (made when the service starts); 0 for a
  // device.
  crypto::RsaHandle cardKey() const { return cardKey_.Get(); }
  crypto::RsaHandle* cardKeyOut() { return cardKey_.Out(); }

  // Runs one request of a channel to this device or card: the confirmation commands, the limits
  // and the login state here, every other card command against the backing token under the
  // device's own login.
  CardAnswer Execute(CardService* service, uint16_t command, const frames::CardRequest& request);

  // The control interface: answers the pending confirmation. False with a reason when there is
  // none to answer (or the token refused the configured PIN).
  bool Confirm(CardService* service, std::string* why);
  bool Refuse(std::string* why);
  bool Pending();

 private:
  frames::ConfirmationState State(CardService* service);
  bool PendingLocked();

  RemoteCardConfig config_;
  uint32_t slotId_;
  frames::RsaOwner cardKey_;
  std::mutex mutex_;     // one command at a time per device; guards everything below
  ChannelLogins logins_;  // the device's login, shared by all its connections
  bool pending_ = false;
  std::chrono::steady_clock::time_point pendingSince_;
};

// Every configured device and card, with its backing token's slot resolved.
class RemoteCards {
 public:
  // Resolves each configuration's token label to a slot of the module. False with a message
  // when a token is not found or a name is repeated or too long.
  bool Load(CK_FUNCTION_LIST* p11, std::vector<RemoteCardConfig> configs, std::string* error);
  std::vector<RemoteCard*> OfKind(RemoteKind kind);
  RemoteCard* Find(RemoteKind kind, const std::string& name);
  // By name in either family (the control interface's commands).
  RemoteCard* FindAny(const std::string& name);

 private:
  std::vector<std::unique_ptr<RemoteCard>> cards_;
};

}  // namespace nivra::cardservice
