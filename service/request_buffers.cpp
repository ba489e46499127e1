#include "service/request_buffers.h"

#include <cstdlib>

#include "crypto/wipe.h"

namespace nivra::service {

uint8_t* AllocZeroed(size_t size) {
  return static_cast<uint8_t*>(std::calloc(size == 0 ? 1 : size, 1));
}

void FreeZeroed(void* block, size_t size) {
  if (block == nullptr) return;
  crypto::Wipe(block, size);
  std::free(block);
}

uint8_t* RequestBuffers::Alloc(size_t size) {
  uint8_t* block = AllocZeroed(size);
  if (block != nullptr) Add(block, size);
  return block;
}

bool RequestBuffers::Remove(const void* block) {
  for (auto it = blocks_.begin(); it != blocks_.end(); ++it) {
    if (it->first == block) {
      blocks_.erase(it);
      return true;
    }
  }
  return false;
}

void RequestBuffers::Clear() {
  for (auto& [block, size] : blocks_) FreeZeroed(block, size);
  blocks_.clear();
}

}  // namespace nivra::service
