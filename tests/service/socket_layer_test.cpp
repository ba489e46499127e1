// The socket layer's rules against a real loopback peer, the string conversions' buffer rules,
// and the transport key's road through Wine's software provider. The connect error of a service
// that is down is proven against the real card service (service_slots_wine_test.cpp); the key
// blob conversion by that road, its one caller.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "crypto/pkcs1.h"
#include "crypto/rsa_key.h"
#include "scripted_peer.h"
#include "service/socket_layer.h"
#include "service/string_convert.h"
#include "service/transport_key.h"

namespace nivra::servicetest {
namespace {

using service::RequestBuffers;

// A client socket connected to a peer that runs `script`.
struct Connected {
  explicit Connected(ScriptedPeer::Script script) : peer(std::move(script)) {
    EXPECT_EQ(service::SockConnect(&s, L"127.0.0.1", peer.Port(), 2000), 0u);
  }
  ~Connected() { service::SockClose(&s); }
  ScriptedPeer peer;
  SOCKET s = INVALID_SOCKET;
};

TEST(SocketLayer, ZeroLengthTransfersSucceedOnAClosedHandleButNoSocketIsRefused) {
  WSADATA data;
  ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
  SOCKET closed = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_NE(closed, INVALID_SOCKET);
  closesocket(closed);
  uint8_t byte = 0;
  EXPECT_EQ(service::SockSendExact(&byte, 0, closed, 100), 0u);
  EXPECT_EQ(service::SockRecvExact(&byte, 0, closed, 100), 0u);
  for (SOCKET none : {SOCKET(0), INVALID_SOCKET}) {
    EXPECT_EQ(service::SockSendExact(&byte, 1, none, 100), static_cast<uint32_t>(WSAENOTSOCK));
    EXPECT_EQ(service::SockRecvExact(&byte, 1, none, 100), static_cast<uint32_t>(WSAENOTSOCK));
  }
}

TEST(SocketLayer, LivenessDrainsStrayBytesAndSeesAClose) {
  std::atomic<bool> closeNow{false};
  Connected c([&](PeerConnection& conn) {
    conn.Write({0x42, 0x43});
    while (!closeNow.load()) Sleep(10);
  });
  ASSERT_EQ(service::SockWaitReady(c.s, service::SockDirection::kRead, 5000), 0u);
  EXPECT_EQ(service::SockCheckAlive(c.s), 0u);
  uint8_t byte = 0;
  EXPECT_EQ(service::SockRecvExact(&byte, 1, c.s, 200), static_cast<uint32_t>(WSAETIMEDOUT))
      << "the stray bytes were drained";
  closeNow = true;
  ASSERT_EQ(service::SockWaitReady(c.s, service::SockDirection::kRead, 5000), 0u);
  EXPECT_EQ(service::SockCheckAlive(c.s), static_cast<uint32_t>(WSAECONNRESET));
}

TEST(SocketLayer, MessagesCarryTwoZeroBytesAndBrokenOnesLeaveNothing) {
  struct Case { const char* what; Bytes sent; uint32_t expected; size_t length; };
  Bytes announcedHundred = {0x11, 0x70, 100, 0, 0, 0, 0, 0};
  announcedHundred.resize(8 + 50, 0x33);
  const Case cases[] = {
      {"empty body", {0x01, 0xF0, 0, 0, 0, 0, 0, 0}, 0, 8},
      {"text body", {0x02, 0xF0, 3, 0, 0, 0, 0, 0, 'a', 'b', 'c'}, 0, 11},
      {"100 announced, 50 sent", announcedHundred, WSAECONNRESET, 0},
      {"header cut short", {0x01, 0xF0, 0}, WSAECONNRESET, 0},
  };
  for (const Case& c : cases) {
    Connected link([&](PeerConnection& conn) { conn.Write(c.sent); });
    RequestBuffers list;
    uint8_t* message = nullptr;
    size_t length = 0;
    EXPECT_EQ(service::SockRecvMessage(&message, &length, link.s, &list, 2000), c.expected)
        << c.what;
    EXPECT_EQ(length, c.length) << c.what;
    EXPECT_EQ(list.Count(), c.expected == 0 ? 1u : 0u) << c.what;
    if (c.expected != 0) {
      EXPECT_EQ(message, nullptr) << c.what;
      continue;
    }
    EXPECT_EQ(std::memcmp(message, c.sent.data(), c.sent.size()), 0) << c.what;
    EXPECT_EQ(message[length], 0) << c.what;
    EXPECT_EQ(message[length + 1], 0) << c.what;
  }
}

TEST(StringConversions, Utf8ToWideSizesAndTerminatesAsDocumented) {
  const char text[] = "Gr\xC3\xBC\xC3\x9F";  // 4 characters
  size_t capacity = 0;
  EXPECT_EQ(service::Utf8ToWide(text, nullptr, &capacity), 0u);
  EXPECT_EQ(capacity, 5u);
  wchar_t exact[5];
  std::fill(std::begin(exact), std::end(exact), L'#');
  capacity = 5;
  EXPECT_EQ(service::Utf8ToWide(text, exact, &capacity), 5u);
  EXPECT_EQ(std::wstring(exact), L"Gr\u00FC\u00DF");
  wchar_t small[4];
  capacity = 4;
  EXPECT_EQ(service::Utf8ToWide(text, small, &capacity), 0u);
  EXPECT_EQ(capacity, 5u);
  RequestBuffers list;
  EXPECT_STREQ(service::WideToUtf8(L"Gr\u00FC\u00DF", &list), text);
  size_t ansiLength = 0;
  const char* ansi = service::Utf8ToAnsi(text, &ansiLength, &list);
  EXPECT_EQ(ansiLength, 4u);
  EXPECT_STREQ(service::AnsiToUtf8(ansi, &list), text);
  EXPECT_EQ(list.Count(), 3u);
}

TEST(TransportKey, SoftwareProviderDecryptsWhatThePublicKeyEncrypted) {
  ASSERT_EQ(service::TransportKeyInit(), 0u);
  EXPECT_EQ(service::TransportKeyBits(), 2048u);
  const uint8_t secret[24] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12,
                              13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24};
  std::vector<uint8_t> block(256);
  ASSERT_EQ(crypto::Pkcs1PadType2(block.data(), 256, secret, sizeof(secret)), 0);
  ASSERT_EQ(crypto::RsaHandlePublic(service::TransportKey(), block.data(), 256, block.data(),
                                    nullptr),
            0);
  uint32_t length = 256;
  ASSERT_EQ(service::SystemProviderDecrypt(block.data(), &length), 0u);
  ASSERT_EQ(length, sizeof(secret));
  EXPECT_EQ(std::memcmp(block.data(), secret, sizeof(secret)), 0);
}

}  // namespace
}  // namespace nivra::servicetest
