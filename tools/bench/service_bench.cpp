// service_bench: what the card service road costs, in one run (Windows build, under Wine or on
// Windows, with nivra-card-service and the forwarding helper serving one token):
//   - one CryptSignHash through the slot the service publishes beside the same through the
//     PKCS#11 module path to the same token (each in a process of its own: while the service is
//     up, a process uses its slots instead of the module's);
//   - the channel handshake (connect, hello, session-key frame, both decryption roads) and the
//     one-off transport key generation;
//   - the Triple DES frame wrap and unwrap throughput.
// The provider is registered as "Nivra pkcs11 CSP" (its test build, whose service port comes
// from NIVRA_TEST_SERVICE_PORT; port 0 means no service, so the module path is used).
//
//   service_bench <slot name> <user PIN> [signatures]     (scripts/bench-service.sh sets it up)
#include <windows.h>
#include <wincrypt.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "crypto/cipher.h"
#include "service/frames/crypto_guards.h"
#include "service/frames/frame_cipher.h"
#include "service/frames/session_handshake.h"
#include "service/remote_slot_table.h"
#include "service/service_settings.h"
#include "service/slot_channel.h"
#include "service/transport_key.h"

namespace {

using Clock = std::chrono::steady_clock;
using nivra::frames::Bytes;

constexpr char kProviderName[] = "Nivra pkcs11 CSP";
constexpr char kContainer[] = "nivra-bench";
constexpr int kHandshakes = 20;
constexpr size_t kFrameBody = 65000;
constexpr double kThroughputSeconds = 1.0;

double Ms(Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); }

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.empty() ? 0 : values[values.size() / 2];
}

// The child's work: sign `count` distinct messages and print the median milliseconds per
// signature (the first signature, which logs in and opens the channel, is not counted).
int SignChild(const std::string& slot, const std::string& pin, int count) {
  const std::string container = "\\\\.\\" + slot + "\\" + kContainer;
  HCRYPTPROV prov = 0;
  if (!CryptAcquireContextA(&prov, container.c_str(), kProviderName, PROV_RSA_FULL, CRYPT_SILENT)) {
    // A first run creates the container. The token is logged in first (a verify context and the
    // PIN parameter) so that the creation asks for no PIN.
    HCRYPTPROV login = 0;
    const std::string slotOnly = "\\\\.\\" + slot + "\\";
    if (CryptAcquireContextA(&login, slotOnly.c_str(), kProviderName, PROV_RSA_FULL,
                             CRYPT_VERIFYCONTEXT)) {
      CryptSetProvParam(login, PP_SIGNATURE_PIN, reinterpret_cast<const BYTE*>(pin.c_str()), 0);
      CryptReleaseContext(login, 0);
    }
  }
  if (prov == 0 && !CryptAcquireContextA(&prov, container.c_str(), kProviderName, PROV_RSA_FULL,
                                         CRYPT_NEWKEYSET)) {
    std::printf("error acquire 0x%08lx\n", GetLastError());
    return 1;
  }
  CryptSetProvParam(prov, PP_SIGNATURE_PIN, reinterpret_cast<const BYTE*>(pin.c_str()), 0);
  HCRYPTKEY key = 0;
  if (!CryptGetUserKey(prov, AT_SIGNATURE, &key) &&
      !CryptGenKey(prov, AT_SIGNATURE, 2048u << 16, &key)) {
    std::printf("error key 0x%08lx\n", GetLastError());
    return 1;
  }
  CryptDestroyKey(key);
  std::vector<double> times;
  for (int i = 0; i <= count; ++i) {
    HCRYPTHASH hash = 0;
    const std::string message = "benchmark message " + std::to_string(i) + " " +
                                std::to_string(GetTickCount64());
    CryptCreateHash(prov, CALG_SHA1, 0, 0, &hash);
    CryptHashData(hash, reinterpret_cast<const BYTE*>(message.data()),
                  static_cast<DWORD>(message.size()), 0);
    BYTE signature[512];
    DWORD length = sizeof(signature);
    const auto start = Clock::now();
    const BOOL ok = CryptSignHashW(hash, AT_SIGNATURE, nullptr, 0, signature, &length);
    const double ms = Ms(Clock::now() - start);
    CryptDestroyHash(hash);
    if (!ok) {
      std::printf("error sign 0x%08lx\n", GetLastError());
      return 1;
    }
    if (i > 0) times.push_back(ms);
  }
  CryptReleaseContext(prov, 0);
  std::printf("sign %.3f\n", Median(times));
  return 0;
}

// Runs this program as a signing child with the given service port; its median, or -1.
double SignInChild(const std::string& slot, const std::string& pin, int count,
                   const std::string& port) {
  char self[MAX_PATH];
  GetModuleFileNameA(nullptr, self, MAX_PATH);
  std::string command = "\"" + std::string(self) + "\" --sign \"" + slot + "\" \"" + pin + "\" " +
                        std::to_string(count);
  SetEnvironmentVariableA("NIVRA_TEST_SERVICE_PORT", port.c_str());
  SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
  HANDLE readEnd = nullptr, writeEnd = nullptr;
  CreatePipe(&readEnd, &writeEnd, &inherit, 0);
  SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
  STARTUPINFOA startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = writeEnd;
  startup.hStdError = writeEnd;
  PROCESS_INFORMATION process{};
  const BOOL started = CreateProcessA(nullptr, &command[0], nullptr, nullptr, TRUE, 0, nullptr,
                                      nullptr, &startup, &process);
  CloseHandle(writeEnd);
  std::string output;
  char buffer[256];
  DWORD got = 0;
  while (started && ReadFile(readEnd, buffer, sizeof(buffer), &got, nullptr) && got > 0) {
    output.append(buffer, got);
  }
  CloseHandle(readEnd);
  if (!started) return -1;
  WaitForSingleObject(process.hProcess, INFINITE);
  CloseHandle(process.hProcess);
  CloseHandle(process.hThread);
  double ms = -1;
  if (std::sscanf(output.c_str(), "sign %lf", &ms) != 1) {
    std::printf("  (child said: %s)\n", output.c_str());
    return -1;
  }
  return ms;
}

// Median milliseconds of a connect plus handshake on the published slot's channel.
double HandshakeMs(const std::string& slot) {
  nivra::pkcs11::P11Slot* record = nivra::service::ServiceFindSlot(slot.c_str());
  if (record == nullptr) return -1;
  nivra::service::RemoteSlotLink& link = nivra::service::LinkOf(*record);
  std::lock_guard<std::mutex> use(link.use);
  std::vector<double> times;
  for (int i = 0; i < kHandshakes; ++i) {
    const auto start = Clock::now();
    if (nivra::service::SlotChannelOpen(record) != 0) return -1;
    times.push_back(Ms(Clock::now() - start));
    nivra::service::SlotChannelClose(*record);
  }
  return Median(times);
}

// MB/s of wrapping (or unwrapping) a frame of kFrameBody bytes.
double WrapThroughput(bool wrap) {
  uint8_t key[nivra::frames::kSessionSecretSize];
  nivra::frames::MakeSessionSecret(key);
  nivra::frames::CipherOwner cipher;
  nivra::crypto::CipherCreateTdes2(cipher.Out(), key);
  Bytes plain(8 + kFrameBody, 0x5A);
  plain[0] = 0x11;
  plain[1] = 0x70;
  plain[2] = static_cast<uint8_t>(kFrameBody);
  plain[3] = static_cast<uint8_t>(kFrameBody >> 8);
  Bytes wrapped, out;
  nivra::frames::WrapFrame(cipher.Get(), plain.data(), plain.size(), &wrapped);
  const Bytes& input = wrap ? plain : wrapped;
  size_t bytes = 0;
  const auto start = Clock::now();
  while (Clock::now() - start < std::chrono::duration<double>(kThroughputSeconds)) {
    if (wrap) {
      nivra::frames::WrapFrame(cipher.Get(), input.data(), input.size(), &out);
    } else {
      nivra::frames::UnwrapFrame(cipher.Get(), input.data(), input.size(), &out);
    }
    bytes += kFrameBody;
  }
  return bytes / 1e6 / std::chrono::duration<double>(Clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 5 && std::strcmp(argv[1], "--sign") == 0) {
    return SignChild(argv[2], argv[3], std::atoi(argv[4]));
  }
  if (argc < 3) {
    std::fprintf(stderr, "usage: service_bench <slot name> <user PIN> [signatures]\n");
    return 2;
  }
  const std::string slot = argv[1], pin = argv[2];
  const int count = argc > 3 ? std::atoi(argv[3]) : 30;
  char port[16] = {};
  GetEnvironmentVariableA("NIVRA_TEST_SERVICE_PORT", port, sizeof(port));
  nivra::service::ServiceSettings settings;
  settings.port = static_cast<uint16_t>(std::atoi(port));
  nivra::service::ServiceSettingsOverride(settings);

  const auto keyStart = Clock::now();
  const bool keyMade = nivra::service::TransportKeyInit() == 0;
  const double keyMs = Ms(Clock::now() - keyStart);
  const double handshake = HandshakeMs(slot);
  settings.systemProviderDecrypt = false;
  nivra::service::ServiceSettingsOverride(settings);
  const double handshakeFallback = HandshakeMs(slot);

  // The module road first: a first run creates the container and its key there.
  const double module = SignInChild(slot, pin, count, "0");
  const double published = SignInChild(slot, pin, count, port);

  std::printf("| Measurement | Value |\n|---|---|\n");
  std::printf("| CryptSignHash, RSA-2048, published slot (median of %d) | %.2f ms |\n", count,
              published);
  std::printf("| CryptSignHash, RSA-2048, module path, same token (median of %d) | %.2f ms |\n",
              count, module);
  std::printf("| Transport key generation (RSA-2048, once per process) | %s%.0f ms |\n",
              keyMade ? "" : "failed, ", keyMs);
  std::printf("| Connect + handshake, software provider decrypts (median of %d) | %.2f ms |\n",
              kHandshakes, handshake);
  std::printf("| Connect + handshake, library's own private operation (median of %d) | %.2f ms |\n",
              kHandshakes, handshakeFallback);
  std::printf("| Frame wrap, 3DES-CBC, %zu-byte bodies | %.1f MB/s |\n", kFrameBody,
              WrapThroughput(true));
  std::printf("| Frame unwrap, 3DES-CBC, %zu-byte bodies | %.1f MB/s |\n", kFrameBody,
              WrapThroughput(false));
  return 0;
}
