#pragma once
// The card service as its clients meet it: the real nivra-card-service program started for each
// test on a fresh SoftHSM2 token of its own (SOFTHSM2_CONF points into a private directory, in
// this process too), spoken to over a bare socket with the shared frame codec.
#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

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

// One TCP connection.
class Client {
 public:
  explicit Client(uint16_t port, const std::string& host = "127.0.0.1");
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  bool Send(const frames::Bytes& bytes);
  // One whole frame; false when the connection closed or failed first.
  bool Receive(frames::Bytes* frame);
  std::string Line();  // one line of text, without its newline
  // True when the service has closed this connection (it reads nothing more).
  bool ClosedByService();

 private:
  int fd_ = -1;
};

// A card command's outcome as a client sees it.
struct CardResult {
  bool transported = false;  // false: the exchange failed or answered another command
  uint32_t status = 0;
  frames::CardResponse response;
};

// A connection and the cipher of the session that its handshake opened.
struct Session {
  explicit Session(uint16_t port, const std::string& host = "127.0.0.1") : client(port, host) {}
  // Sends `frame` wrapped (a card command, or a slot or device frame holding one) and reads the
  // answer to `command`.
  CardResult Call(uint16_t command, const frames::Bytes& frame, size_t blockLength = 0);
  Client client;
  frames::CipherOwner cipher;
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
  // The module the service serves.
  virtual std::string Module() { return "/usr/lib/softhsm/libsofthsm2.so"; }
  // Starts the service with two devices and two cards on the scratch token (the cards on
  // loopback addresses drawn per test, so that concurrent runs never meet); slot_ is the
  // token's slot as the service publishes it.
  void SetUp() override;
  // Every service ends cleanly on SIGTERM: exit status 0, so no crash and, in a sanitizer build,
  // no report.
  void TearDown() override;

  // SIGTERM, then the wait status.
  int Terminate();
  // Exit status and output of the service started with this card configuration.
  int Refused(const std::string& config, std::string* output);
  std::string Log() const;
  // One line on the control interface, and its one-line answer.
  std::string Control(const std::string& line) const;
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

  std::string directory_;
  pid_t pid_ = -1;
  uint16_t port_ = 0, controlPort_ = 0;
  uint32_t slot_ = 0;
  std::string desk_, spare_;  // the addresses of the cards
};

}  // namespace nivra::cardtest
