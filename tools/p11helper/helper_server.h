#pragma once
// Accepts the forwarding module's connections (several per process, several processes) and serves
// each on a thread of its own; the dispatcher runs one module call at a time.
#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "tools/p11helper/dispatcher.h"
#include "tools/p11wire/wire_socket.h"

namespace nivra::p11helper {

class HelperServer {
 public:
  explicit HelperServer(Dispatcher* dispatcher) : dispatcher_(dispatcher) {}
  // Stops serving and joins every connection thread.
  ~HelperServer();

  // Listens on `address` (port 0: any free port). False with a message when it cannot.
  bool Listen(const p11wire::WireAddress& address, std::string* error);
  uint16_t port() const { return listener_.port(); }

  // Serves until the "stop" control command, Stop(), or `externalStop` becomes true.
  void Run(const std::atomic<bool>* externalStop = nullptr);

  // Makes Run return and closes every connection. Safe from any thread.
  void Stop();

 private:
  struct Connection {
    p11wire::WireSocket socket;
    std::thread thread;
    std::atomic<bool> finished{false};
    std::atomic<uint32_t> processId{0};  // the client's host process, once it said hello
  };

  // Serves one connection until it closes or breaks the protocol.
  void Serve(Connection* connection);
  // Joins and drops the connections whose threads have ended and, with `closedPeersToo`, those
  // whose peer has closed or whose process no longer runs (their threads end as soon as they
  // read the close).
  void Reap(bool closedPeersToo);

  Dispatcher* dispatcher_;
  p11wire::WireListener listener_;
  std::atomic<bool> stop_{false};
  std::mutex connectionsMutex_;
  std::list<std::unique_ptr<Connection>> connections_;
};

}  // namespace nivra::p11helper
