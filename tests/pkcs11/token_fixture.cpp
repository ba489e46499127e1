#include "token_fixture.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "tools/p11wire/control_client.h"

namespace nivra::p11test {

namespace {

bool g_caseRan = false;

p11wire::WireAddress HelperAddress() {
  std::ifstream in(std::string(NIVRA_FIXTURE_WINDOWS) + "/port");
  unsigned port = 0;
  in >> port;
  return p11wire::WireAddress{"127.0.0.1", static_cast<uint16_t>(port)};
}

template <class Fn>
bool Resolve(HMODULE module, const char* name, Fn* out) {
  *out = reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name)));
  return *out != nullptr;
}

std::string Trimmed(const CK_UTF8CHAR* text, size_t size) {
  std::string value(reinterpret_cast<const char*>(text), size);
  return value.erase(value.find_last_not_of(' ') + 1);
}

}  // namespace

bool ProviderEntries::Load(HMODULE module) {
  return Resolve(module, "NivraCPAcquireContext", &AcquireContext) &&
         Resolve(module, "NivraCPReleaseContext", &ReleaseContext) &&
         Resolve(module, "NivraCPGetProvParam", &GetProvParam) &&
         Resolve(module, "NivraCPSetProvParam", &SetProvParam);
}

void TokenTest::SetUp() {
  ASSERT_FALSE(g_caseRan) << "each case needs a process of its own: run it through CTest or "
                             "with --gtest_filter naming one case";
  g_caseRan = true;
  const p11wire::WireAddress helper = HelperAddress();
  // Without the fixture's helper the forwarding module would try its default port, where some
  // other helper may listen: stop here instead.
  ASSERT_NE(helper.port, 0) << "no helper port in " << NIVRA_FIXTURE_WINDOWS
                            << " (a CTest fixture such as pkcs11_helper_start starts it)";
  SetEnvironmentVariableA("NIVRA_P11_HELPER", p11wire::FormatWireAddress(helper).c_str());
  Control("reset");
  hive.SetModulePath(ProgramDirectory() + L"nivrap11fwd.dll");
  hive.RegisterProvider(kProviderName, ProgramDirectory() + ProviderDll());
  hive.Activate();
  provider = LoadLibraryW((ProgramDirectory() + ProviderDll()).c_str());
  ASSERT_NE(provider, nullptr);
  ASSERT_TRUE(entries.Load(provider));
}

void TokenTest::TearDown() {
  if (provider == nullptr) return;
  for (HCRYPTPROV prov : exportContexts) entries.ReleaseContext(prov, 0);
  for (HCRYPTPROV prov : cryptContexts) CryptReleaseContext(prov, 0);
  Control("reset");
  hive.Deactivate();
}

std::string TokenTest::Control(const std::string& command) {
  std::string answer;
  const uint32_t rv = p11wire::SendControlCommand(HelperAddress(), command, &answer);
  EXPECT_EQ(rv, 0u) << command << ": " << answer;
  return answer;
}

void TokenTest::StartProvider() {
  ASSERT_EQ(Acquire("", CRYPT_VERIFYCONTEXT), 0u) << "the provider cannot start";
  ASSERT_NE(Module(), nullptr);
  slotName = SlotOfToken("nivra-fwd", &slotId);
  ASSERT_FALSE(slotName.empty()) << "the fixture token is not listed";
}

std::string TokenTest::SlotOfToken(const std::string& label, CK_SLOT_ID* id) {
  CK_SLOT_ID slots[64];
  CK_ULONG count = 64;
  EXPECT_EQ(Module()->C_GetSlotList(CK_TRUE, slots, &count), CKR_OK);
  for (CK_ULONG i = 0; i < count; ++i) {
    CK_TOKEN_INFO token{};
    if (Module()->C_GetTokenInfo(slots[i], &token) != CKR_OK ||
        Trimmed(token.label, sizeof(token.label)) != label) {
      continue;
    }
    if (id != nullptr) *id = slots[i];
    return SlotDescription(slots[i]);
  }
  return "";
}

std::string TokenTest::SlotDescription(CK_SLOT_ID id) {
  CK_SLOT_INFO slot{};
  EXPECT_EQ(Module()->C_GetSlotInfo(id, &slot), CKR_OK);
  return Trimmed(slot.slotDescription, sizeof(slot.slotDescription));
}

DWORD TokenTest::Acquire(const std::string& container, DWORD flags, HCRYPTPROV* prov) {
  HCRYPTPROV handle = 0;
  std::string name = container;
  SetLastError(0xFEED);
  const BOOL ok = entries.AcquireContext(&handle, container.empty() ? nullptr : name.data(), flags,
                                         nullptr);
  const DWORD error = GetLastError();
  EXPECT_EQ(ok != FALSE, error == 0u);
  if (ok && handle != 0) exportContexts.push_back(handle);
  if (prov != nullptr) *prov = handle;
  return error;
}

DWORD TokenTest::CryptAcquire(const std::string& container, DWORD flags, HCRYPTPROV* prov) {
  HCRYPTPROV handle = 0;
  const BOOL ok = CryptAcquireContextA(&handle, container.empty() ? nullptr : container.c_str(),
                                       "Nivra pkcs11 CSP", PROV_RSA_FULL, flags);
  const DWORD error = ok ? 0 : GetLastError();
  if (ok && handle != 0) cryptContexts.push_back(handle);
  if (prov != nullptr) *prov = handle;
  return error;
}

HCRYPTPROV TokenTest::NewCryptContainer(const std::string& name) {
  StartProvider();
  LogIn();
  FreshContainer(name);
  HCRYPTPROV prov = 0;
  EXPECT_EQ(CryptAcquire(OnToken(name), CRYPT_NEWKEYSET, &prov), 0u);
  return prov;
}

void TokenTest::FreshContainer(const std::string& name) {
  HCRYPTPROV unused = 0;
  std::string container = OnToken(name);
  entries.AcquireContext(&unused, container.data(), CRYPT_DELETEKEYSET, nullptr);
}

std::string TokenTest::OnToken(const std::string& container) const {
  return "\\\\.\\" + slotName + "\\" + container;
}

void TokenTest::LogIn() {
  HCRYPTPROV prov = 0;
  ASSERT_EQ(CryptAcquire("\\\\.\\" + slotName, CRYPT_VERIFYCONTEXT, &prov), 0u);
  std::string pin = kUserPin;
  ASSERT_TRUE(CryptSetProvParam(prov, PP_SIGNATURE_PIN, reinterpret_cast<BYTE*>(pin.data()), 0))
      << std::hex << GetLastError();
}

void TokenTest::LogOut() {
  CK_FUNCTION_LIST* f = Module();
  CK_SESSION_HANDLE session = 0;
  ASSERT_EQ(f->C_OpenSession(slotId, CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_OK);
  f->C_Logout(session);
  f->C_CloseSession(session);
}

DWORD TokenTest::SignSha1(HCRYPTPROV prov, DWORD keySpec, const Bytes& message, Bytes* signature) {
  HCRYPTHASH hash = 0;
  BYTE out[512];
  DWORD length = sizeof(out);
  const bool ok = CryptCreateHash(prov, CALG_SHA1, 0, 0, &hash) &&
                  CryptHashData(hash, message.data(), static_cast<DWORD>(message.size()), 0) &&
                  CryptSignHashW(hash, keySpec, nullptr, 0, out, &length);
  const DWORD error = ok ? 0 : GetLastError();
  if (hash != 0) CryptDestroyHash(hash);
  // CryptoAPI gives it least significant byte first.
  if (signature != nullptr) signature->assign(std::reverse_iterator(out + (ok ? length : 0)),
                                              std::reverse_iterator(out));
  return error;
}

CK_FUNCTION_LIST* TokenTest::Module() {
  HMODULE module = GetModuleHandleW(L"nivrap11fwd.dll");
  if (module == nullptr) return nullptr;
  auto get = reinterpret_cast<CK_C_GetFunctionList>(
      reinterpret_cast<void*>(GetProcAddress(module, "C_GetFunctionList")));
  CK_FUNCTION_LIST* list = nullptr;
  return get != nullptr && get(&list) == CKR_OK ? list : nullptr;
}

std::vector<std::string> TokenTest::RunNative(const std::string& commandLine) {
  const std::string output = std::string(NIVRA_FIXTURE_UNIX) + "/probe-" +
                             std::to_string(GetCurrentProcessId()) + "-" +
                             std::to_string(++probeRuns_) + ".out";
  // Wine starts native programs itself but gives no waitable handle and no exit code for them,
  // so the output ends with "done" and appears under its name only when it is complete.
  // Nor does it fill in the handles: it reports success with stale handle values of this
  // process in PROCESS_INFORMATION (seen: the event that the thread's blocking socket calls wait
  // on). Closing them made every later socket call of the thread fail with WSAENOTSOCK, which
  // looked like an unreachable helper; they are never the probe's, so they are left alone.
  std::string command = "/bin/sh -c \"(" + commandLine + "; echo done) > '" + output +
                        ".part' 2>&1; mv '" + output + ".part' '" + output + "'\"";
  STARTUPINFOA startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process{};
  if (!CreateProcessA(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                      &process)) {
    ADD_FAILURE() << "cannot start the probe: " << GetLastError();
    return {};
  }
  std::ifstream in;
  for (const ULONGLONG deadline = GetTickCount64() + 60000; GetTickCount64() < deadline; Sleep(20)) {
    in.open("Z:" + output);
    if (in.is_open()) break;
  }
  std::vector<std::string> lines;
  bool done = false;
  for (std::string line; std::getline(in, line);) {
    if (line == "done") done = true;
    else lines.push_back(line);
  }
  in.close();
  DeleteFileA(("Z:" + output).c_str());
  EXPECT_TRUE(done) << "the native command did not finish: " << commandLine;
  for (const std::string& l : lines) EXPECT_NE(l.rfind("error:", 0), 0u) << l;
  return lines;
}

std::vector<NativeObject> TokenTest::NativeObjectsWith(const std::string& name,
                                                       const std::string& value) {
  std::vector<NativeObject> matching;
  const std::string probe = NIVRA_TOKEN_PROBE;
  for (const std::string& line : RunNative("'" + probe + "' objects '" + NIVRA_FIXTURE_UNIX + "'")) {
    std::istringstream words(line);
    std::string word;
    NativeObject object;
    while (words >> word) {
      const size_t equals = word.find('=');
      if (equals != std::string::npos) object[word.substr(0, equals)] = word.substr(equals + 1);
    }
    auto it = object.find(name);
    if (it != object.end() && it->second == value) matching.push_back(object);
  }
  return matching;
}

// OpenSSL's side is a script beside the probe.
std::vector<std::string> TokenTest::RunOpenSsl(const std::string& arguments) {
  const std::string probe = NIVRA_TOKEN_PROBE;
  return RunNative("sh '" + probe.substr(0, probe.rfind('/')) + "/token_openssl.sh' " + arguments);
}

bool TokenTest::NativeVerifiesSha1(const Bytes& modulus, const Bytes& exponent,
                                   const Bytes& message, const Bytes& signature) {
  const auto lines = RunOpenSsl("verify-sha1 " + Hex(modulus) + " " + Hex(exponent) + " " +
                                Hex(message) + " " + Hex(signature));
  return lines.size() == 1 && lines[0] == "verified";
}

Bytes TokenTest::NativeEncrypt(const std::string& padding, const Bytes& modulus,
                               const Bytes& exponent, const Bytes& message) {
  const auto lines = RunOpenSsl("encrypt " + padding + " " + Hex(modulus) + " " + Hex(exponent) +
                                " " + Hex(message));
  return lines.size() == 1 ? FromHex(lines[0]) : Bytes();
}

std::string TokenTest::CaseName(const std::string& suffix) const {
  return std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) + suffix;
}

std::string Hex(const Bytes& bytes) {
  std::string text;
  for (uint8_t b : bytes) {
    text += "0123456789abcdef"[b >> 4];
    text += "0123456789abcdef"[b & 15];
  }
  return text;
}

Bytes FromHex(const std::string& text) {
  Bytes bytes;
  for (size_t i = 0; i + 1 < text.size(); i += 2)
    bytes.push_back(static_cast<uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
  return bytes;
}

Bytes TextBytes(const std::string& text) { return Bytes(text.begin(), text.end()); }

}  // namespace nivra::p11test
