#pragma once
// How a client side gets a request to the helper and its reply back.
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "tools/p11wire/wire_ops.h"
#include "tools/p11wire/wire_socket.h"

namespace nivra::p11wire {

class WireTransport {
 public:
  virtual ~WireTransport() = default;
  // Sends one request body for `op` and waits for the reply body of the same operation. False
  // when no connection could be made or the exchange failed half-way.
  virtual bool Exchange(WireOp op, const std::vector<uint8_t>& request,
                        std::vector<uint8_t>* reply) = 0;
};

// Connections of one process to the helper. Each exchange takes an idle connection or opens a new
// one (which first introduces itself with the process's client id), so a call that blocks for a
// long time (a slot-event wait) never holds up the process's other threads. Thread-safe.
class WirePooledTransport : public WireTransport {
 public:
  // `resolve` is asked for the helper's address each time a connection is opened (false: none).
  // `processId` is the host's id of this process, told to the helper (0: not known).
  WirePooledTransport(std::function<bool(WireAddress*)> resolve, uint64_t clientId,
                      uint32_t processId = 0);

  bool Exchange(WireOp op, const std::vector<uint8_t>& request,
                std::vector<uint8_t>* reply) override;

  // Closes the connections that no exchange is using.
  void CloseIdle();

  uint64_t clientId() const { return clientId_; }

 private:
  bool OpenConnection(WireSocket* out);

  std::function<bool(WireAddress*)> resolve_;
  uint64_t clientId_;
  uint32_t processId_;
  std::mutex mutex_;
  std::vector<WireSocket> idle_;
};

// One round trip on an established socket: sends the request frame and reads the reply frame,
// which must be a reply to the same operation. False otherwise.
bool ExchangeOnSocket(WireSocket& socket, WireOp op, const std::vector<uint8_t>& request,
                      std::vector<uint8_t>* reply);

}  // namespace nivra::p11wire
