// Heap blocks of one transport request. Every block that a request allocates (outgoing frames,
// received messages, converted strings) can be kept in one RequestBuffers list, which wipes and
// frees them all when the request ends.
#pragma once
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace nivra::service {

// A zero-filled heap block of `size` bytes, or null when there is no memory.
uint8_t* AllocZeroed(size_t size);
// Wipes block[0..size) and frees it (null accepted).
void FreeZeroed(void* block, size_t size);

class RequestBuffers {
 public:
  RequestBuffers() = default;
  ~RequestBuffers() { Clear(); }
  RequestBuffers(const RequestBuffers&) = delete;
  RequestBuffers& operator=(const RequestBuffers&) = delete;

  // Takes ownership of block (size bytes).
  void Add(void* block, size_t size) { blocks_.emplace_back(block, size); }
  // A new zero-filled block that the list owns, or null.
  uint8_t* Alloc(size_t size);
  // Removes the first entry equal to block without freeing it; false when it is not listed.
  bool Remove(const void* block);
  // Wipes and frees every listed block.
  void Clear();
  size_t Count() const { return blocks_.size(); }

 private:
  std::vector<std::pair<void*, size_t>> blocks_;
};

// The list operation by its transport name: removes the first entry equal to block.
inline bool BufferListRemove(RequestBuffers* list, const void* block) {
  return list != nullptr && list->Remove(block);
}

}  // namespace nivra::service
