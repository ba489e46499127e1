#include "scripted_peer.h"

#include <ws2tcpip.h>

#include "service/frames/device_records.h"
#include "service/frames/frame_cipher.h"
#include "service/frames/session_handshake.h"
#include "service/frames/slot_records.h"
#include "service/service_link.h"
#include "service/service_settings.h"

namespace nivra::servicetest {

namespace {
constexpr long kPollUs = 50000;

bool WaitReadable(SOCKET s) {
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(s, &readable);
  timeval poll{0, kPollUs};
  return select(0, &readable, nullptr, nullptr, &poll) == 1;
}
}  // namespace

bool PeerConnection::ReadExact(uint8_t* out, size_t len) {
  size_t done = 0;
  while (done < len) {
    if (stop_->load()) return false;
    if (!WaitReadable(socket_)) continue;
    const int got =
        recv(socket_, reinterpret_cast<char*>(out + done), static_cast<int>(len - done), 0);
    if (got <= 0) return false;
    done += static_cast<size_t>(got);
  }
  return true;
}

bool PeerConnection::ReadFrame(Bytes* frame) {
  frame->assign(frames::kHeaderSize, 0);
  if (!ReadExact(frame->data(), frames::kHeaderSize)) return false;
  const size_t body = frames::ReadHeader(frame->data()).bodyLength;
  frame->resize(frames::kHeaderSize + body);
  return ReadExact(frame->data() + frames::kHeaderSize, body);
}

void PeerConnection::Write(const Bytes& bytes) {
  send(socket_, reinterpret_cast<const char*>(bytes.data()), static_cast<int>(bytes.size()), 0);
}

bool PeerConnection::Handshake(const Bytes& secret, const std::function<void(Bytes&)>& edit) {
  Bytes hello;
  if (!ReadFrame(&hello)) return false;
  const uint8_t* der = nullptr;
  size_t derLen = 0;
  if (frames::ParseHelloBody(hello.data() + frames::kHeaderSize,
                             hello.size() - frames::kHeaderSize, &der,
                             &derLen) != frames::FrameStatus::kOk) {
    return false;
  }
  Bytes answer;
  if (frames::BuildSessionKeyFrame(der, derLen, secret.data(), secret.size(), &answer) !=
      frames::FrameStatus::kOk) {
    return false;
  }
  if (edit) edit(answer);
  if (secret.size() == frames::kSessionSecretSize) {
    crypto::CipherCreateTdes2(cipher_.Out(), secret.data());
  }
  Write(answer);
  return true;
}

bool PeerConnection::ReadRequest(uint32_t* slotId, std::string* device, Bytes* inner) {
  Bytes wrapped, plain;
  if (!ReadFrame(&wrapped) ||
      frames::UnwrapFrame(cipher_.Get(), wrapped.data(), wrapped.size(), &plain) !=
          frames::FrameStatus::kOk) {
    return false;
  }
  const uint8_t* body = plain.data() + frames::kHeaderSize;
  const size_t length = plain.size() - frames::kHeaderSize;
  frames::FrameView view;
  if ((device != nullptr ? frames::ParseDeviceFrameBody(body, length, device, &view)
                         : frames::ParseSlotFrameBody(body, length, slotId, &view)) !=
      frames::FrameStatus::kOk) {
    return false;
  }
  inner->assign(view.body - frames::kHeaderSize, view.body + view.header.bodyLength);
  return true;
}

void PeerConnection::Answer(const Bytes& frame) {
  Bytes wrapped;
  frames::WrapFrame(cipher_.Get(), frame.data(), frame.size(), &wrapped);
  Write(wrapped);
}

Bytes FreshSecret() {
  Bytes secret(frames::kSessionSecretSize);
  frames::MakeSessionSecret(secret.data());
  return secret;
}

void UsePorts(uint16_t port, uint16_t cardPort, bool systemProviderDecrypt) {
  service::ServiceSettings settings;
  settings.port = port;
  settings.cardPort = cardPort;
  settings.connectTimeoutMs = 2000;
  settings.requestTimeoutMs = 3000;
  settings.confirmWaitMs = 600;
  settings.confirmPollMs = 100;
  settings.systemProviderDecrypt = systemProviderDecrypt;
  service::ServiceSettingsOverride(settings);
  service::ServiceLinkClose();
}

ScriptedPeer::Script ScriptedPeer::Answering(Answerer answer, bool devices) {
  return [answer, devices](PeerConnection& conn) {
    if (!conn.Handshake(FreshSecret())) return;
    uint32_t slot = 0;
    std::string device;
    Bytes inner;
    while (conn.ReadRequest(&slot, devices ? &device : nullptr, &inner)) {
      conn.Answer(answer(frames::ReadHeader(inner.data()).command, inner));
    }
  };
}

ScriptedPeer::ScriptedPeer(Script script, uint16_t port) : script_(std::move(script)) {
  WSADATA data;
  WSAStartup(MAKEWORD(2, 2), &data);
  listener_ = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  if (bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
      listen(listener_, 8) == 0) {
    int size = sizeof(address);
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
  }
  thread_ = std::thread([this] { Serve(); });
}

ScriptedPeer::~ScriptedPeer() {
  stopping_ = true;
  thread_.join();
  closesocket(listener_);
}

void ScriptedPeer::Serve() {
  while (!stopping_.load()) {
    if (!WaitReadable(listener_)) continue;
    SOCKET s = accept(listener_, nullptr, nullptr);
    if (s == INVALID_SOCKET) return;
    u_long blocking = 0;
    ioctlsocket(s, FIONBIO, &blocking);
    PeerConnection connection(s, &stopping_);
    script_(connection);
    shutdown(s, SD_BOTH);
    closesocket(s);
  }
}

}  // namespace nivra::servicetest
