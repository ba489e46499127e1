// Comparison of secret-dependent bytes in time that does not depend on where they differ.
#pragma once
#include <cstddef>

namespace nivra::crypto {

// True when a[0..len) equals b[0..len). Every byte is looked at whatever the earlier ones were.
bool ConstantTimeEqual(const void* a, const void* b, size_t len);

}  // namespace nivra::crypto
