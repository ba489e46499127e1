#include "tools/p11helper/control_commands.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <sstream>

#include "tools/p11helper/dispatcher.h"
#include "tools/p11wire/wire_ops.h"

namespace nivra::p11helper {
namespace {

std::string Hex(uint64_t v) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(v));
  return text;
}

}  // namespace

std::vector<std::string> SplitControlWords(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

bool ParseControlNumber(const std::string& word, uint64_t* value) {
  bool hex = word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X');
  std::string digits = hex ? word.substr(2) : word;
  const char* allowed = hex ? "0123456789abcdefABCDEF" : "0123456789";
  if (digits.empty() || digits.find_first_not_of(allowed) != std::string::npos) return false;
  errno = 0;
  unsigned long long parsed = std::strtoull(digits.c_str(), nullptr, hex ? 16 : 10);
  if (errno == ERANGE) return false;
  *value = parsed;
  return true;
}

p11wire::ControlReply Dispatcher::Control(const std::string& command) {
  Lock lock(mutex_);
  p11wire::ControlReply reply;
  reply.text = RunControl(SplitControlWords(command), &reply.rv);
  return reply;
}

void Dispatcher::ResetInjections() {
  state_.slotEvents = false;
  while (!state_.removedTokens.empty()) InsertToken(*state_.removedTokens.begin());
  state_.fakeSlots.clear();
  state_.forcedInitialize.reset();
  state_.cantLock = false;
  state_.vendorClass = vendorClassAtStart_;
  state_.vendorClassRefusal.reset();
  state_.initializeArguments.clear();
  state_.forcedLogin.reset();
  state_.forcedWait.reset();
  for (auto& [id, client] : state_.clients) client.pendingEvents.clear();
  state_.callCounts.fill(0);
  eventsChanged_.notify_all();
}

namespace {

std::string Refuse(uint32_t* rv, CK_RV code, const std::string& why) {
  *rv = static_cast<uint32_t>(code);
  return why;
}

size_t Arguments(const std::vector<std::string>& words) { return words.size() - 1; }
bool NoArguments(const std::vector<std::string>& words) { return Arguments(words) == 0; }
bool OneArgument(const std::vector<std::string>& words) { return Arguments(words) == 1; }
bool AnyArguments(const std::vector<std::string>&) { return true; }
bool OnOrOff(const std::vector<std::string>& words) {
  return OneArgument(words) && (words[1] == "on" || words[1] == "off");
}
// One argument, or two whose second is `flag`.
template <const char* flag>
bool OneArgumentAndOptional(const std::vector<std::string>& words) {
  return Arguments(words) == 1 || (Arguments(words) == 2 && words[2] == flag);
}
constexpr char kBlank[] = "blank";
constexpr char kNoInit[] = "noinit";

}  // namespace

std::string Dispatcher::AddFakeSlots(const std::vector<std::string>& words, uint32_t* rv) {
  uint64_t number = 0;
  if (!ParseControlNumber(words[1], &number) || number == 0 ||
      number > kMaxFakeSlots - state_.fakeSlots.size())
    return Refuse(rv, CKR_ARGUMENTS_BAD,
                  "slot count must be 1.." + std::to_string(kMaxFakeSlots) + " in total");
  std::string ids;
  for (uint64_t i = 0; i < number; ++i) {
    FakeSlot fake;
    fake.id = kFirstFakeSlotId + state_.fakeSlots.size();
    fake.blankDescription = Arguments(words) == 2;
    state_.fakeSlots.push_back(fake);
    ids += (ids.empty() ? "" : " ") + Hex(fake.id);
  }
  return ids;
}

std::string Dispatcher::ForceInitialize(const std::vector<std::string>& words, uint32_t* rv) {
  uint64_t number = 0;
  if (!ParseControlNumber(words[1], &number) || number > 0xFFFFFFFFull)
    return Refuse(rv, CKR_ARGUMENTS_BAD, "return value must be a 32-bit number");
  state_.forcedInitialize = ForcedInitialize{static_cast<uint32_t>(number), Arguments(words) == 2};
  return "ok";
}

// remove, insert and event: one slot number.
std::string Dispatcher::SlotCommand(const std::vector<std::string>& words, uint32_t* rv) {
  const std::string& verb = words[0];
  uint64_t number = 0;
  if (!OneArgument(words) || !ParseControlNumber(words[1], &number))
    return Refuse(rv, CKR_ARGUMENTS_BAD, verb + " needs one slot number");
  const auto slot = static_cast<CK_SLOT_ID>(number);
  if (verb == "event") {
    if (!FindFakeSlot(slot) && !IsModuleSlot(slot))
      return Refuse(rv, CKR_SLOT_ID_INVALID, "no slot " + Hex(slot));
    QueueSlotEvent(slot);
    return "ok";
  }
  if (!IsModuleSlot(slot)) return Refuse(rv, CKR_SLOT_ID_INVALID, "no module slot " + Hex(slot));
  return verb == "remove" ? RemoveToken(slot) : InsertToken(slot);
}

std::string Dispatcher::CountOf(const std::string& name, uint32_t* rv) {
  p11wire::WireOp op;
  if (!p11wire::WireCallOpFromName(name, &op))
    return Refuse(rv, CKR_ARGUMENTS_BAD, "no forwarded function " + name);
  return std::to_string(state_.callCounts[static_cast<uint16_t>(op) - p11wire::kWireFirstCallOp]);
}

std::string Dispatcher::AllCounts() {
  std::string lines;
  for (uint16_t op = p11wire::kWireFirstCallOp; op <= p11wire::kWireLastCallOp; ++op) {
    uint64_t n = state_.callCounts[op - p11wire::kWireFirstCallOp];
    if (n != 0) lines += std::string(p11wire::WireOpName(op)) + "=" + std::to_string(n) + "\n";
  }
  return lines;
}

std::string Dispatcher::ListSlots() {
  std::string lines;
  CK_ULONG n = 0;
  std::vector<CK_SLOT_ID> ids;
  if (module_->C_GetSlotList(CK_FALSE, nullptr, &n) == CKR_OK) {
    ids.resize(n);
    if (module_->C_GetSlotList(CK_FALSE, ids.data(), &n) != CKR_OK) n = 0;
    ids.resize(n);
  }
  for (CK_SLOT_ID id : ids) {
    CK_SLOT_INFO info;
    bool present = module_->C_GetSlotInfo(id, &info) == CKR_OK && (info.flags & CKF_TOKEN_PRESENT);
    const char* token = state_.removedTokens.count(id) ? "removed" : (present ? "present" : "empty");
    lines += Hex(id) + " module " + token + "\n";
  }
  for (const FakeSlot& fake : state_.fakeSlots) lines += Hex(fake.id) + " fake\n";
  return lines;
}

// "off" clears the injected value; otherwise one 32-bit number (non-zero unless allowZero).
static std::string SetOrClear(std::optional<uint32_t>* value, const std::string& word, bool allowZero,
                              uint32_t* rv) {
  if (word == "off") {
    value->reset();
    return "ok";
  }
  uint64_t number = 0;
  if (!ParseControlNumber(word, &number) || (number == 0 && !allowZero) || number > 0xFFFFFFFFull)
    return Refuse(rv, CKR_ARGUMENTS_BAD,
                  allowZero ? "return value must be a 32-bit number"
                            : "refusal must be a non-zero 32-bit number");
  *value = static_cast<uint32_t>(number);
  return "ok";
}

std::string Dispatcher::InitializeArguments() {
  std::string lines;
  for (const p11wire::InitializeRequest& given : state_.initializeArguments) {
    lines += given.hasArguments ? "flags=" + Hex(given.flags) +
                                      (given.mutexFunctions ? " mutexes" : " no-mutexes")
                                : std::string("null");
    lines += "\n";
  }
  return lines;
}

using Words = std::vector<std::string>;

const Dispatcher::ControlCommand Dispatcher::kControlCommands[] = {
    {"ping", NoArguments, [](Dispatcher&, const Words&, uint32_t*) -> std::string { return "pong"; }},
    {"reset", NoArguments,
     [](Dispatcher& d, const Words&, uint32_t*) -> std::string {
       d.ResetInjections();
       return "ok";
     }},
    {"add-slots", OneArgumentAndOptional<kBlank>,
     [](Dispatcher& d, const Words& w, uint32_t* rv) { return d.AddFakeSlots(w, rv); }},
    {"force-init", [](const Words& w) { return OneArgument(w) && w[1] == "off"; },
     [](Dispatcher& d, const Words&, uint32_t*) -> std::string {
       d.state_.forcedInitialize.reset();
       return "ok";
     }},
    {"force-init", OneArgumentAndOptional<kNoInit>,
     [](Dispatcher& d, const Words& w, uint32_t* rv) { return d.ForceInitialize(w, rv); }},
    {"vendor-class", OnOrOff,
     [](Dispatcher& d, const Words& w, uint32_t*) -> std::string {
       d.state_.vendorClass = w[1] == "on";
       return "ok";
     }},
    {"refuse-vendor-class", OneArgument,
     [](Dispatcher& d, const Words& w, uint32_t* rv) {
       return SetOrClear(&d.state_.vendorClassRefusal, w[1], false, rv);
     }},
    {"force-login", OneArgument,
     [](Dispatcher& d, const Words& w, uint32_t* rv) {
       return SetOrClear(&d.state_.forcedLogin, w[1], true, rv);
     }},
    {"force-wait", OneArgument,
     [](Dispatcher& d, const Words& w, uint32_t* rv) {
       return SetOrClear(&d.state_.forcedWait, w[1], true, rv);
     }},
    {"cant-lock", OnOrOff,
     [](Dispatcher& d, const Words& w, uint32_t*) -> std::string {
       d.state_.cantLock = w[1] == "on";
       return "ok";
     }},
    {"init-args", NoArguments,
     [](Dispatcher& d, const Words&, uint32_t*) { return d.InitializeArguments(); }},
    {"remove", AnyArguments, [](Dispatcher& d, const Words& w, uint32_t* rv) { return d.SlotCommand(w, rv); }},
    {"insert", AnyArguments, [](Dispatcher& d, const Words& w, uint32_t* rv) { return d.SlotCommand(w, rv); }},
    {"event", AnyArguments, [](Dispatcher& d, const Words& w, uint32_t* rv) { return d.SlotCommand(w, rv); }},
    {"slot-events", OnOrOff,
     [](Dispatcher& d, const Words& w, uint32_t*) -> std::string {
       d.state_.slotEvents = w[1] == "on";
       d.eventsChanged_.notify_all();
       return "ok";
     }},
    {"count", OneArgument, [](Dispatcher& d, const Words& w, uint32_t* rv) { return d.CountOf(w[1], rv); }},
    {"counts", NoArguments, [](Dispatcher& d, const Words&, uint32_t*) { return d.AllCounts(); }},
    {"reset-counts", NoArguments,
     [](Dispatcher& d, const Words&, uint32_t*) -> std::string {
       d.state_.callCounts.fill(0);
       return "ok";
     }},
    {"slots", NoArguments, [](Dispatcher& d, const Words&, uint32_t*) { return d.ListSlots(); }},
    {"stop", NoArguments,
     [](Dispatcher& d, const Words&, uint32_t*) -> std::string {
       d.state_.stopping = true;
       d.eventsChanged_.notify_all();
       return "stopping";
     }},
};

std::string Dispatcher::RunControl(const std::vector<std::string>& words, uint32_t* rv) {
  *rv = CKR_OK;
  if (words.empty()) return Refuse(rv, CKR_ARGUMENTS_BAD, "empty command");
  for (const ControlCommand& command : kControlCommands) {
    if (words[0] == command.verb && command.accepts(words)) return command.run(*this, words, rv);
  }
  return Refuse(rv, CKR_ARGUMENTS_BAD, "unknown command: " + words[0]);
}

}  // namespace nivra::p11helper
