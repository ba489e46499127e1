#include "tools/p11helper/control_commands.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
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
  state_.userPinLocked = false;
  state_.vendorClass = vendorClassAtStart_;
  state_.vendorClassRefusal.reset();
  state_.initializeArguments.clear();
  for (auto& [id, client] : state_.clients) client.pendingEvents.clear();
  state_.callCounts.fill(0);
  eventsChanged_.notify_all();
}

std::string Dispatcher::RunControl(const std::vector<std::string>& words, uint32_t* rv) {
  *rv = CKR_OK;
  auto refuse = [rv](CK_RV code, const std::string& why) {
    *rv = static_cast<uint32_t>(code);
    return why;
  };
  if (words.empty()) return refuse(CKR_ARGUMENTS_BAD, "empty command");
  const std::string& verb = words[0];
  const size_t args = words.size() - 1;
  uint64_t number = 0;
  // The slot argument of remove, insert and event; false when it is malformed.
  auto slotArgument = [&](CK_SLOT_ID* slot) {
    if (args != 1 || !ParseControlNumber(words[1], &number)) return false;
    *slot = static_cast<CK_SLOT_ID>(number);
    return true;
  };

  if (verb == "ping" && args == 0) return "pong";
  if (verb == "reset" && args == 0) {
    ResetInjections();
    return "ok";
  }
  if (verb == "add-slots" && (args == 1 || (args == 2 && words[2] == "blank"))) {
    if (!ParseControlNumber(words[1], &number) || number == 0 ||
        number > kMaxFakeSlots - state_.fakeSlots.size())
      return refuse(CKR_ARGUMENTS_BAD, "slot count must be 1.." + std::to_string(kMaxFakeSlots) +
                                           " in total");
    std::string ids;
    for (uint64_t i = 0; i < number; ++i) {
      FakeSlot fake;
      fake.id = kFirstFakeSlotId + state_.fakeSlots.size();
      fake.blankDescription = args == 2;
      state_.fakeSlots.push_back(fake);
      ids += (ids.empty() ? "" : " ") + Hex(fake.id);
    }
    return ids;
  }
  if (verb == "force-init" && args == 1 && words[1] == "off") {
    state_.forcedInitialize.reset();
    return "ok";
  }
  if (verb == "force-init" && (args == 1 || (args == 2 && words[2] == "noinit"))) {
    if (!ParseControlNumber(words[1], &number) || number > 0xFFFFFFFFull)
      return refuse(CKR_ARGUMENTS_BAD, "return value must be a 32-bit number");
    state_.forcedInitialize = ForcedInitialize{static_cast<uint32_t>(number), args == 2};
    return "ok";
  }
  if (verb == "vendor-class" && args == 1 && (words[1] == "on" || words[1] == "off")) {
    state_.vendorClass = words[1] == "on";
    return "ok";
  }
  if (verb == "refuse-vendor-class" && args == 1) {
    if (words[1] == "off") {
      state_.vendorClassRefusal.reset();
      return "ok";
    }
    if (!ParseControlNumber(words[1], &number) || number == 0 || number > 0xFFFFFFFFull)
      return refuse(CKR_ARGUMENTS_BAD, "refusal must be a non-zero 32-bit number");
    state_.vendorClassRefusal = static_cast<uint32_t>(number);
    return "ok";
  }
  if (verb == "cant-lock" && args == 1 && (words[1] == "on" || words[1] == "off")) {
    state_.cantLock = words[1] == "on";
    return "ok";
  }
  if (verb == "lock-pin" && args == 1 && (words[1] == "on" || words[1] == "off")) {
    state_.userPinLocked = words[1] == "on";
    return "ok";
  }
  if (verb == "init-args" && args == 0) {
    std::string lines;
    for (const p11wire::InitializeRequest& given : state_.initializeArguments) {
      lines += given.hasArguments ? "flags=" + Hex(given.flags) +
                                        (given.mutexFunctions ? " mutexes" : " no-mutexes")
                                  : std::string("null");
      lines += "\n";
    }
    return lines;
  }
  if (verb == "remove" || verb == "insert" || verb == "event") {
    CK_SLOT_ID slot = 0;
    if (!slotArgument(&slot)) return refuse(CKR_ARGUMENTS_BAD, verb + " needs one slot number");
    if (verb == "event") {
      if (!FindFakeSlot(slot) && !IsModuleSlot(slot))
        return refuse(CKR_SLOT_ID_INVALID, "no slot " + Hex(slot));
      QueueSlotEvent(slot);
      return "ok";
    }
    if (!IsModuleSlot(slot)) return refuse(CKR_SLOT_ID_INVALID, "no module slot " + Hex(slot));
    return verb == "remove" ? RemoveToken(slot) : InsertToken(slot);
  }
  if (verb == "slot-events" && args == 1 && (words[1] == "on" || words[1] == "off")) {
    state_.slotEvents = words[1] == "on";
    eventsChanged_.notify_all();
    return "ok";
  }
  if (verb == "count" && args == 1) {
    p11wire::WireOp op;
    if (!p11wire::WireCallOpFromName(words[1], &op))
      return refuse(CKR_ARGUMENTS_BAD, "no forwarded function " + words[1]);
    return std::to_string(state_.callCounts[static_cast<uint16_t>(op) - p11wire::kWireFirstCallOp]);
  }
  if (verb == "counts" && args == 0) {
    std::string lines;
    for (uint16_t op = p11wire::kWireFirstCallOp; op <= p11wire::kWireLastCallOp; ++op) {
      uint64_t n = state_.callCounts[op - p11wire::kWireFirstCallOp];
      if (n != 0) lines += std::string(p11wire::WireOpName(op)) + "=" + std::to_string(n) + "\n";
    }
    return lines;
  }
  if (verb == "reset-counts" && args == 0) {
    state_.callCounts.fill(0);
    return "ok";
  }
  if (verb == "slots" && args == 0) {
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
  if (verb == "stop" && args == 0) {
    state_.stopping = true;
    eventsChanged_.notify_all();
    return "stopping";
  }
  return refuse(CKR_ARGUMENTS_BAD, "unknown command: " + verb);
}

}  // namespace nivra::p11helper
