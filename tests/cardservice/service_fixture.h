#pragma once
// The card service as its clients meet it: the real nivra-card-service program, started for each
// test by service_fixture_start.sh on a fresh SoftHSM2 token of its own (SOFTHSM2_CONF points
// there in this process too), spoken to over a bare socket with the shared frame codec.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "service/frames/card_commands.h"
#include "service/frames/crypto_guards.h"
#include "service/frames/frame_codes.h"

namespace nivra::cardtest {

inline constexpr char kTokenLabel[] = "nivra-service";
inline constexpr char kUserPin[] = "1234";  // the PINs of every scratch token
inline constexpr char kSoPin[] = "5678";

// Status values the service answers with.
inline constexpr uint32_t kNoMoreItems = 259;
inline constexpr uint32_t kNteBadData = 0x80090005;
inline constexpr uint32_t kNteNotFound = 0x80090011;
inline constexpr uint32_t kNteBadKeyset = 0x80090016;
inline constexpr uint32_t kNteNoKey = 0x8009000D;
inline constexpr uint32_t kNteBadFlags = 0x80090009;
inline constexpr uint32_t kScardInvalidChv = 0x8010002A;
inline constexpr uint32_t kScardChvBlocked = 0x8010006C;
inline constexpr uint32_t kScardNotAuthenticated = 0x8010006F;
inline constexpr uint32_t kScardReaderUnavailable = 0x80100017;
inline constexpr uint32_t kScardUnknownCard = 0x8010000D;
inline constexpr uint32_t kNteNotSupported = 0x80090029;

inline constexpr uint32_t kAtKeyExchange = 1;
inline constexpr uint32_t kAtSignature = 2;

// A card command's outcome as a client sees it.
struct CardResult {
  bool transported = false;  // false: the exchange failed or answered another command
  uint32_t status = 0;
  frames::CardResponse response;
};

// One TCP connection, and the cipher of the session that a handshake on it opened.
class Session {
 public:
  explicit Session(uint16_t port, const std::string& host = "127.0.0.1");
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  bool Send(const frames::Bytes& bytes);
  // One whole frame; false when the connection closed or failed first.
  bool Receive(frames::Bytes* frame);
  // True when the service has closed this connection (it reads nothing more).
  bool ClosedByService();
  // Sends `frame` wrapped (a card command, or a slot or device frame holding one) and reads the
  // answer to `command`.
  CardResult Call(uint16_t command, const frames::Bytes& frame, size_t blockLength = 0);
  frames::CipherOwner cipher;

 private:
  int fd_ = -1;
};

// The card command in a device frame to `device`, or in a slot frame when it is empty.
frames::Bytes CardFrame(uint16_t command, const frames::CardRequest& request, uint32_t slot,
                        const std::string& device = {});

template <typename Bytes>
std::string Hex(const Bytes& bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (unsigned char c : bytes) hex += {kDigits[c >> 4], kDigits[c & 15]};
  return hex;
}

class ServiceTest : public ::testing::Test {
 protected:
  // Starts the service (serving module_ when set, else SoftHSM2) with a device and
  // two cards on the scratch token, the cards on loopback addresses of the process's own so
  // that concurrent runs never meet. slot_ is the token's slot as the service publishes it.
  void SetUp() override;
  // Every service ends on SIGTERM with its last log line, and in a sanitizer build with no report.
  void TearDown() override;

  // Stops the service (SIGTERM): true when it ended within ten seconds and cleanly.
  bool Stop();
  std::string Log() const;
  // What service_fixture_start.sh says, and its exit status, for this card configuration.
  int Start(const std::string& directory, const std::string& config, std::string* output);
  // True when an object of the token, as the Windows tests' probe lists it (name=value fields in
  // a fixed order, byte strings in hex), matches the extended regular expression `pattern`.
  bool NativeHas(const std::string& pattern) const;
  // A channel: the handshake made with a transport key of the client's own.
  std::unique_ptr<Session> Open();

  CardResult Call(Session& channel, uint16_t command, const frames::CardRequest& request = {},
                  size_t blockLength = 0) {
    CardResult result = channel.Call(command, CardFrame(command, request, slot_), blockLength);
    EXPECT_TRUE(result.transported) << "command 0x" << std::hex << command;
    return result;
  }
  CardResult Text(Session& channel, uint16_t command, const std::string& text,
                  const std::string& text2 = {}) {
    frames::CardRequest request;
    request.text = text;
    request.text2 = text2;
    return Call(channel, command, request);
  }
  void Login(Session& channel) {
    ASSERT_EQ(Text(channel, frames::kCmdVerifyPin, kUserPin).response.value, 1u);
  }
  uint32_t Create(Session& channel, const std::string& name) {
    CardResult created = Text(channel, frames::kCmdCreateContainer, name);
    EXPECT_EQ(created.status, 0u);
    return created.response.value;
  }
  static frames::CardRequest Key(uint32_t handle, uint32_t keySpec, frames::Bytes data = {}) {
    frames::CardRequest request;
    request.handle = handle;
    request.keySpec = keySpec;
    request.data = std::move(data);
    return request;
  }

  std::string module_;
  std::string directory_, service_;  // the test's directory, and the service's in it
  uint16_t port_ = 0;
  uint32_t slot_ = 0;
  std::string desk_, spare_;  // the addresses of the cards
};

}  // namespace nivra::cardtest
