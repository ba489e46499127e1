#include "provider/provider_context.h"

#include <cstdlib>
#include <new>

#include "provider/handle_registry.h"

namespace nivra::provider {

namespace {
// The one address whose context handle (address + bias) would be 0.
const uintptr_t kAddressOfHandleZero = uintptr_t{0} - kHandleBias;
}  // namespace

// GCC sees the comparison with a constant address and warns that the block freed there is no
// heap block; it is the block calloc just returned.
#pragma GCC diagnostic ignored "-Wfree-nonheap-object"

void* ProviderContext::operator new(size_t size) {
  void* block = std::calloc(1, size);
  if (reinterpret_cast<uintptr_t>(block) == kAddressOfHandleZero) {
    void* second = std::calloc(1, size);
    std::free(block);
    block = second;
  }
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void ProviderContext::operator delete(void* p) { std::free(p); }

std::string ProviderContext::CardContainerName() const {
  return containerName[0] != '\0' ? std::string(containerName) : std::string("DefaultContainer");
}

}  // namespace nivra::provider
