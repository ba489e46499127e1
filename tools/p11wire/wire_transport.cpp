#include "tools/p11wire/wire_transport.h"

#include <utility>

#include "tools/p11wire/wire_shapes.h"

namespace nivra::p11wire {

bool ExchangeOnSocket(WireSocket& socket, WireOp op, const std::vector<uint8_t>& request,
                      std::vector<uint8_t>* reply) {
  if (!socket.SendFrame(static_cast<uint16_t>(op), false, request)) return false;
  WireFrameHeader header;
  if (!socket.ReceiveFrame(&header, reply)) return false;
  return header.reply && header.op == static_cast<uint16_t>(op);
}

WirePooledTransport::WirePooledTransport(std::function<bool(WireAddress*)> resolve,
                                         uint64_t clientId, uint32_t processId)
    : resolve_(std::move(resolve)), clientId_(clientId), processId_(processId) {}

bool WirePooledTransport::OpenConnection(WireSocket* out) {
  WireAddress address;
  if (!resolve_(&address) || !WireSocket::Connect(address, out)) return false;
  HelloRequest hello;
  hello.clientId = clientId_;
  hello.processId = processId_;
  std::vector<uint8_t> body;
  HelloReply answer;
  if (!ExchangeOnSocket(*out, WireOp::kHello, EncodeBody(hello), &body) ||
      !DecodeBody(body, &answer) || answer.rv != 0 || answer.version != kWireProtocolVersion) {
    out->Close();
    return false;
  }
  return true;
}

bool WirePooledTransport::Exchange(WireOp op, const std::vector<uint8_t>& request,
                                   std::vector<uint8_t>* reply) {
  WireSocket socket;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!idle_.empty()) {
      socket = std::move(idle_.back());
      idle_.pop_back();
    }
  }
  if (!socket.valid() && !OpenConnection(&socket)) return false;
  if (!ExchangeOnSocket(socket, op, request, reply)) return false;  // the socket closes here
  std::lock_guard<std::mutex> lock(mutex_);
  idle_.push_back(std::move(socket));
  return true;
}

void WirePooledTransport::CloseIdle() {
  std::vector<WireSocket> closing;
  std::lock_guard<std::mutex> lock(mutex_);
  closing.swap(idle_);
}

}  // namespace nivra::p11wire
