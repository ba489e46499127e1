#pragma once
// A running service on a fresh token for each test, and the card commands the tests use most.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <memory>
#include <string>

#include "service/frames/frame_codes.h"
#include "tests/cardservice/service_harness.h"

namespace nivra::cardtest {

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

class ServiceTest : public ::testing::Test {
 protected:
  // The module the service serves (SoftHSM2 when empty).
  virtual std::string Module() { return {}; }
  // The devices and cards the service presents (none when empty).
  virtual std::string CardConfig() { return {}; }
  void SetUp() override {
    service_ = std::make_unique<ServiceProcess>(Module(), CardConfig());
    ASSERT_TRUE(service_->ok()) << "the service did not start";
    slot_ = TokenSlot();
    ASSERT_NE(slot_, 0u);
  }

  // Every service ends cleanly on SIGTERM: exit status 0, so no crash and, in a sanitizer build,
  // no report.
  void TearDown() override {
    if (service_ && service_->ok()) {
      int status = service_->Terminate(10000);
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "wait status " << status;
    }
  }

  std::unique_ptr<Channel> Open() {
    auto channel = std::make_unique<Channel>(service_->port());
    EXPECT_TRUE(channel->ready()) << "handshake failed";
    return channel;
  }
  CardResult Call(Channel& channel, uint16_t command, const frames::CardRequest& request = {},
                  size_t blockLength = 0) {
    CardResult result = channel.Call(slot_, command, request, blockLength);
    EXPECT_TRUE(result.transported) << "command 0x" << std::hex << command;
    EXPECT_EQ(result.command, frames::ResponseCommand(command));
    return result;
  }
  CardResult Text(Channel& channel, uint16_t command, const std::string& text,
                  const std::string& text2 = {}) {
    frames::CardRequest request;
    request.text = text;
    request.text2 = text2;
    return Call(channel, command, request);
  }
  // Logs the channel in with the user PIN.
  void Login(Channel& channel) {
    CardResult verified = Text(channel, frames::kCmdVerifyPin, kUserPin);
    ASSERT_EQ(verified.status, 0u);
    ASSERT_EQ(verified.response.value, 1u);
  }
  // Creates a container and returns its handle.
  uint32_t Create(Channel& channel, const std::string& name) {
    CardResult created = Text(channel, frames::kCmdCreateContainer, name);
    EXPECT_EQ(created.status, 0u);
    return created.response.value;
  }
  frames::CardRequest Key(uint32_t handle, uint32_t keySpec, frames::Bytes data = {}) {
    frames::CardRequest request;
    request.handle = handle;
    request.keySpec = keySpec;
    request.data = std::move(data);
    return request;
  }
  // Generates a 1024-bit pair and returns its public-key block.
  frames::PublicKeyBlock Generate(Channel& channel, uint32_t handle, uint32_t keySpec) {
    frames::CardRequest request = Key(handle, keySpec);
    request.bits = 1024;
    request.exponent = 65537;
    CardResult generated = Call(channel, frames::kCmdGenerateKeyPair, request);
    EXPECT_EQ(generated.status, 0u);
    return generated.response.publicKey;
  }

  std::unique_ptr<ServiceProcess> service_;
  uint32_t slot_ = 0;
};

}  // namespace nivra::cardtest
