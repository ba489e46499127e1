// nivra-mode-token [--forget]
//
// Prints a mode token issued now, as 32 hexadecimal digits, for an application to pass to
// CryptSetProvParam(hProv, 22209, token, 0) on a Bluetooth context within 5 seconds. The token
// marks the context's device as verified (no confirmation on the device for 30 seconds, in every
// context of the process); with --forget it removes the device from that record instead.
//
// The program and the provider share the token key (service/frames/mode_token.cpp): it is a
// shared secret of the two, and whoever holds either binary can issue tokens. Distribute the
// program only where the provider's users may skip the confirmation on their devices.
#include <windows.h>

#include <cstdio>
#include <cstring>

#include "service/frames/mode_token.h"

int main(int argc, char** argv) {
  bool flag = true;
  if (argc == 2 && std::strcmp(argv[1], "--forget") == 0) {
    flag = false;
  } else if (argc != 1) {
    std::fprintf(stderr, "usage: nivra-mode-token [--forget]\n");
    return 2;
  }
  uint8_t token[nivra::frames::kModeTokenSize];
  if (!nivra::frames::IssueModeToken(GetTickCount64(), flag, token)) {
    std::fprintf(stderr, "nivra-mode-token: the cipher failed\n");
    return 1;
  }
  for (uint8_t byte : token) std::printf("%02x", byte);
  std::printf("\n");
  return 0;
}
