#include "tools/p11helper/helper_server.h"

#include "tools/p11helper/host_process.h"

#include "tools/p11wire/wire_ops.h"
#include "tools/p11wire/wire_shapes.h"

namespace nivra::p11helper {
namespace {

using p11wire::WireOp;

// How often Run looks at the stop conditions while nobody connects.
constexpr int kAcceptPollMs = 200;

}  // namespace

HelperServer::~HelperServer() {
  Stop();
  std::lock_guard<std::mutex> lock(connectionsMutex_);
  for (auto& c : connections_)
    if (c->thread.joinable()) c->thread.join();
  connections_.clear();
}

bool HelperServer::Listen(const p11wire::WireAddress& address, std::string* error) {
  if (listener_.Listen(address)) return true;
  *error = "cannot listen on " + p11wire::FormatWireAddress(address);
  return false;
}

void HelperServer::Stop() {
  stop_ = true;
  dispatcher_->Stop();
  std::lock_guard<std::mutex> lock(connectionsMutex_);
  for (auto& c : connections_) c->socket.Shutdown();
}

void HelperServer::Reap(bool closedPeersToo) {
  std::lock_guard<std::mutex> lock(connectionsMutex_);
  for (auto it = connections_.begin(); it != connections_.end();) {
    Connection& c = **it;
    if (c.finished || (closedPeersToo && (c.socket.PeerClosed() || HostProcessGone(c.processId)))) {
      c.socket.Shutdown();  // ends the wait of a thread that has not seen the close yet
      c.thread.join();
      it = connections_.erase(it);
    } else {
      ++it;
    }
  }
}

void HelperServer::Run(const std::atomic<bool>* externalStop) {
  while (!stop_ && !dispatcher_->stopRequested() && !(externalStop && *externalStop)) {
    p11wire::WireSocket socket;
    auto result = listener_.Accept(kAcceptPollMs, &socket);
    // Before a new client is served, the clients whose processes have ended are cleaned up to the
    // end: their sessions, and with them the token login the module shares among all our clients,
    // are gone, as they would be for a separate process on a real module. (Left to their threads,
    // the next process could log in while the last one's login still stood.) A process has ended
    // when its connection is closed or when the host says it no longer runs: Wine's server can
    // keep the socket of a finished process open for good (a thread killed at exit while it
    // waited for a reply), and closes even a plain one only a moment after the exit is seen.
    Reap(result == p11wire::WireListener::AcceptResult::kAccepted);
    if (result == p11wire::WireListener::AcceptResult::kFailed) break;
    if (result != p11wire::WireListener::AcceptResult::kAccepted) continue;
    auto connection = std::make_unique<Connection>();
    connection->socket = std::move(socket);
    Connection* raw = connection.get();
    std::lock_guard<std::mutex> lock(connectionsMutex_);
    connections_.push_back(std::move(connection));
    raw->thread = std::thread([this, raw] { Serve(raw); });
  }
  Stop();
  listener_.Close();
}

void HelperServer::Serve(Connection* connection) {
  p11wire::WireSocket& socket = connection->socket;
  bool attached = false;
  uint64_t clientId = 0;
  auto peerGone = [&socket] { return socket.PeerClosed(); };
  for (;;) {
    p11wire::WireFrameHeader header;
    std::vector<uint8_t> body;
    if (!socket.ReceiveFrame(&header, &body) || header.reply) break;
    std::vector<uint8_t> reply;
    if (header.op == static_cast<uint16_t>(WireOp::kControl)) {
      p11wire::ControlRequest request;
      p11wire::ControlReply answer;
      if (p11wire::DecodeBody(body, &request))
        answer = dispatcher_->Control(request.command);
      else
        answer.rv = CKR_ARGUMENTS_BAD;
      reply = p11wire::EncodeBody(answer);
    } else if (header.op == static_cast<uint16_t>(WireOp::kHello) && !attached) {
      p11wire::HelloRequest request;
      p11wire::HelloReply answer;
      if (!p11wire::DecodeBody(body, &request) || request.version != p11wire::kWireProtocolVersion) {
        answer.rv = CKR_GENERAL_ERROR;
        socket.SendFrame(header.op, true, p11wire::EncodeBody(answer));
        break;
      }
      clientId = request.clientId;
      connection->processId = request.processId;
      dispatcher_->Attach(clientId);
      attached = true;
      reply = p11wire::EncodeBody(answer);
    } else if (attached && p11wire::IsWireCallOp(header.op)) {
      reply = dispatcher_->HandleCall(clientId, header.op, body, peerGone);
    } else {
      break;  // a call before the hello, a second hello, or an unknown operation
    }
    if (!socket.SendFrame(header.op, true, reply)) break;
  }
  if (attached) dispatcher_->Detach(clientId);
  socket.Shutdown();
  connection->finished = true;
}

}  // namespace nivra::p11helper
