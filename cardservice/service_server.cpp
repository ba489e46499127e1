#include "cardservice/service_server.h"

#include <poll.h>
#include <unistd.h>

#include <vector>

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

bool ServiceServer::ListenCards(uint16_t port, std::string* error) {
  for (RemoteCard* card : cards_->OfKind(RemoteKind::kServiceCard)) {
    cardListeners_.emplace_back(card);
    if (!cardListeners_.back().listener.Listen(card->config().address, port, error)) {
      *error = "card " + card->name() + ": " + *error;
      return false;
    }
    LogLine("card %s (\"%s\") served on %s:%u", card->name().c_str(),
            card->config().display.c_str(), card->config().address.c_str(), port);
  }
  return true;
}

void ServiceServer::Serve(int fd, const std::string& peer, RemoteCard* card) {
  uint32_t id = nextId_++;
  if (served_.size() >= kMaxConnections) {
    LogLine("conn %u: %s turned away, %zu connections are open", id, peer.c_str(),
            served_.size());
    close(fd);
    return;
  }
  if (card) {
    LogLine("conn %u: %s connected to card %s", id, peer.c_str(), card->name().c_str());
  } else {
    LogLine("conn %u: %s connected", id, peer.c_str());
  }
  auto served = std::make_unique<Served>();
  served->connection = std::make_unique<Connection>(id, fd, service_, cards_, card, &stopping_);
  Served* raw = served.get();
  served->thread = std::thread([raw] {
    raw->connection->Serve();
    raw->finished = true;
  });
  served_.push_back(std::move(served));
}

void ServiceServer::Run(const std::atomic<bool>& stop) {
  std::vector<pollfd> waits;
  std::vector<std::pair<Listener*, RemoteCard*>> owners;
  waits.push_back({listener_.fd(), POLLIN, 0});
  owners.push_back({&listener_, nullptr});
  for (CardListener& entry : cardListeners_) {
    waits.push_back({entry.listener.fd(), POLLIN, 0});
    owners.push_back({&entry.listener, entry.card});
  }
  while (!stop) {
    for (pollfd& wait : waits) wait.revents = 0;
    int ready = poll(waits.data(), waits.size(), kAcceptStepMs);
    Reap();
    if (ready <= 0) continue;
    for (size_t i = 0; i < waits.size(); ++i) {
      if (!(waits[i].revents & POLLIN)) continue;
      std::string peer;
      int fd = owners[i].first->Accept(0, &peer);
      if (fd >= 0) Serve(fd, peer, owners[i].second);
    }
  }
  CloseAll();
}

}  // namespace nivra::cardservice
