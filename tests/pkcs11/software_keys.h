// Key material made by Wine's own software provider, for tests that import it into ours.
#pragma once
#include <cstdint>
#include <vector>

namespace nivra::p11test {

// A fresh 1024-bit exchange pair of the "Microsoft Strong Cryptographic Provider", exported as
// a PRIVATEKEYBLOB (20 + 9 * 64 bytes). Empty, with a test failure, if that does not work.
std::vector<uint8_t> SoftwarePrivateKeyBlob();

}  // namespace nivra::p11test
