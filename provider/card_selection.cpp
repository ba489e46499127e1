#include "provider/card_selection.h"

#include <atomic>

namespace nivra::provider {

namespace {
std::atomic<CardSelector>& Selector() {
  static std::atomic<CardSelector> selector{nullptr};
  return selector;
}
}  // namespace

void RegisterCardSelector(CardSelector selector) { Selector() = selector; }
CardSelector FindCardSelector() { return Selector().load(); }

}  // namespace nivra::provider
