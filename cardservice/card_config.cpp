// The card configuration file: one device or card per line, blank lines and '#' comments ignored.
#include <arpa/inet.h>

#include <cstdlib>
#include <fstream>
#include <limits>

#include "cardservice/remote_cards.h"
#include "cardservice/socket_stream.h"

namespace nivra::cardservice {

namespace {

// Splits a line into words; a double-quoted part may hold blanks (the quotes are dropped).
bool SplitWords(const std::string& line, std::vector<std::string>* words) {
  std::string word;
  bool inWord = false, quoted = false;
  for (char c : line) {
    if (c == '"') {
      quoted = !quoted;
      inWord = true;
    } else if (!quoted && (c == ' ' || c == '\t')) {
      if (inWord) words->push_back(word);
      word.clear();
      inWord = false;
    } else if (!quoted && c == '#') {
      break;
    } else {
      word += c;
      inWord = true;
    }
  }
  if (inWord) words->push_back(word);
  return !quoted;
}

bool ParseNumber(const std::string& text, unsigned long max, unsigned long* value) {
  if (text.empty()) return false;
  char* end = nullptr;
  *value = std::strtoul(text.c_str(), &end, 0);
  return *end == '\0' && *value <= max;
}

template <typename T>
bool SetNumber(const std::string& text, T* field) {
  unsigned long value = 0;
  if (!ParseNumber(text, std::numeric_limits<T>::max(), &value)) return false;
  *field = static_cast<T>(value);
  return true;
}

// Applies one key=value setting; a message when it is not understood.
std::string ApplySetting(const std::string& key, const std::string& value,
                         RemoteCardConfig* card) {
  frames::CardLimits& limits = card->limits;
  bool ok = true;
  if (key == "token") {
    card->tokenLabel = value;
  } else if (key == "pin") {
    card->pin = value;
  } else if (key == "display") {
    card->display = value;
  } else if (key == "address") {
    if (card->kind != RemoteKind::kServiceCard) return "only a card has an address";
    if (!IsLoopbackAddress(value)) return "the address must be a loopback address (127.x.y.z)";
    card->address = value;
  } else if (key == "key-bits") {
    if (card->kind != RemoteKind::kServiceCard) return "only a card has a key pair";
    ok = SetNumber(value, &card->keyBits) && card->keyBits >= kCardKeyBitsMin &&
         card->keyBits % 8 == 0;
  } else if (key == "default-key") {
    ok = SetNumber(value, &limits.defaultBits);
  } else if (key == "min-key") {
    ok = SetNumber(value, &limits.minBits);
  } else if (key == "max-key") {
    ok = SetNumber(value, &limits.maxBits);
  } else if (key == "key-step") {
    ok = SetNumber(value, &limits.incrementBits);
  } else if (key == "min-pin") {
    ok = SetNumber(value, &limits.minPin);
  } else if (key == "max-pin") {
    ok = SetNumber(value, &limits.maxPin);
  } else if (key == "pin-flags") {
    ok = SetNumber(value, &limits.pinFlags);
    limits.hasPinFlags = true;
  } else {
    return "unknown setting '" + key + "'";
  }
  return ok ? std::string() : "bad value for " + key + ": '" + value + "'";
}

// The next default address after `address` (127.0.0.2, 127.0.0.3, ...).
std::string NextAddress(const std::string& address) {
  in_addr parsed;
  inet_pton(AF_INET, address.c_str(), &parsed);
  parsed.s_addr = htonl(ntohl(parsed.s_addr) + 1);
  char text[INET_ADDRSTRLEN];
  inet_ntop(AF_INET, &parsed, text, sizeof text);
  return text;
}

std::string ParseLine(const std::vector<std::string>& words, RemoteCardConfig* card) {
  if (words[0] == "device") {
    card->kind = RemoteKind::kDevice;
  } else if (words[0] == "card") {
    card->kind = RemoteKind::kServiceCard;
  } else {
    return "a line starts with 'device' or 'card', not '" + words[0] + "'";
  }
  if (words.size() < 2) return "a name follows '" + words[0] + "'";
  card->name = words[1];
  if (card->name.empty() || card->name.size() > kRemoteNameMax) {
    return "a name has 1 to " + std::to_string(kRemoteNameMax) + " bytes";
  }
  for (size_t i = 2; i < words.size(); ++i) {
    size_t equals = words[i].find('=');
    if (equals == std::string::npos) return "'" + words[i] + "' is not key=value";
    std::string why = ApplySetting(words[i].substr(0, equals), words[i].substr(equals + 1), card);
    if (!why.empty()) return why;
  }
  if (card->tokenLabel.empty()) return "token=LABEL is required";
  if (card->display.empty()) card->display = card->name;
  return {};
}

}  // namespace

frames::CardLimits DefaultLimits() {
  frames::CardLimits limits;
  limits.loaded = 1;
  limits.defaultBits = 2048;
  limits.minBits = 1024;
  limits.maxBits = 4096;
  limits.incrementBits = 8;
  limits.minPin = 4;
  limits.maxPin = 64;
  limits.hasPinFlags = true;
  return limits;
}

bool ReadCardConfig(const std::string& path, std::vector<RemoteCardConfig>* cards,
                    std::string* error) {
  std::ifstream in(path);
  if (!in) {
    *error = path + ": cannot be read";
    return false;
  }
  std::string line, nextAddress = kFirstServiceCardAddress;
  for (int number = 1; std::getline(in, line); ++number) {
    std::vector<std::string> words;
    std::string why;
    RemoteCardConfig card;
    if (!SplitWords(line, &words)) {
      why = "a quote is not closed";
    } else if (words.empty()) {
      continue;
    } else {
      why = ParseLine(words, &card);
    }
    if (!why.empty()) {
      *error = path + ":" + std::to_string(number) + ": " + why;
      return false;
    }
    if (card.kind == RemoteKind::kServiceCard) {
      if (card.address.empty()) card.address = nextAddress;
      if (!IsLoopbackAddress(card.address)) {
        *error = path + ":" + std::to_string(number) + ": no loopback address follows the last one";
        return false;
      }
      nextAddress = NextAddress(card.address);
    }
    cards->push_back(std::move(card));
  }
  return true;
}

}  // namespace nivra::cardservice
