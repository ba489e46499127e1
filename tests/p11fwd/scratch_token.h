#pragma once
// A SoftHSM2 token for tests, in a private temporary directory: SOFTHSM2_CONF is pointed at a
// configuration there, so nothing touches the machine's own token store.
#include <string>

namespace nivra::p11test {

inline constexpr char kTokenLabel[] = "nivra-test";
inline constexpr char kUserPin[] = "1234";
inline constexpr char kSoPin[] = "5678";

class ScratchToken {
 public:
  ScratchToken() = default;
  // Deletes the directory and everything in it.
  ~ScratchToken();
  ScratchToken(const ScratchToken&) = delete;
  ScratchToken& operator=(const ScratchToken&) = delete;

  // Makes the directory and configuration, sets SOFTHSM2_CONF and initialises one token with
  // kTokenLabel and the two PINs (softhsm2-util). Must run before SoftHSM2 is initialised in this
  // process. False with a message on failure.
  bool Create(std::string* error);

  const std::string& directory() const { return directory_; }

 private:
  std::string directory_;
};

}  // namespace nivra::p11test
