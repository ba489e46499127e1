#include "cardservice/service_server.h"

#include <unistd.h>

#include "cardservice/service_log.h"

namespace nivra::cardservice {

namespace {
constexpr int kAcceptStepMs = 100;
}

ServiceServer::~ServiceServer() { CloseAll(); }

void ServiceServer::Reap() {
  for (auto it = served_.begin(); it != served_.end();) {
    if ((*it)->finished) {
      (*it)->thread.join();
      it = served_.erase(it);
    } else {
      ++it;
    }
  }
}

void ServiceServer::CloseAll() {
  stopping_ = true;
  for (auto& served : served_) served->connection->Shutdown();
  for (auto& served : served_) served->thread.join();
  served_.clear();
}

void ServiceServer::Run(const std::atomic<bool>& stop) {
  while (!stop) {
    std::string peer;
    int fd = listener_.Accept(kAcceptStepMs, &peer);
    Reap();
    if (fd < 0) continue;
    uint32_t id = nextId_++;
    if (served_.size() >= kMaxConnections) {
      LogLine("conn %u: %s turned away, %zu connections are open", id, peer.c_str(),
              served_.size());
      close(fd);
      continue;
    }
    LogLine("conn %u: %s connected", id, peer.c_str());
    auto served = std::make_unique<Served>();
    served->connection = std::make_unique<Connection>(id, fd, service_, &stopping_);
    Served* raw = served.get();
    served->thread = std::thread([raw] {
      raw->connection->Serve();
      raw->finished = true;
    });
    served_.push_back(std::move(served));
  }
  CloseAll();
}

}  // namespace nivra::cardservice
