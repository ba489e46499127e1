#include "service/frames/card_commands.h"

#include <cstring>

#include "service/frames/byte_order.h"
#include "service/frames/frame_codes.h"

namespace nivra::frames {

namespace {

constexpr size_t kWord = 4;

enum class RequestLayout { kEmpty, kText, kTwoTexts, kIndex, kHandle, kHandleSpec,
                           kHandleSpecData, kGenerate, kReason };
enum class ResponseLayout { kEmpty, kValue, kEnumName, kOpenName, kPublicKey, kBlock,
                            kCertificate, kLimits };

struct CommandLayout {
  uint16_t command;
  RequestLayout request;
  ResponseLayout response;
};

constexpr CommandLayout kLayouts[] = {
    {kCmdCreateContainer, RequestLayout::kText, ResponseLayout::kValue},
    {kCmdEnumContainers, RequestLayout::kIndex, ResponseLayout::kEnumName},
    {kCmdOpenContainer, RequestLayout::kText, ResponseLayout::kOpenName},
    {kCmdDeleteContainer, RequestLayout::kHandle, ResponseLayout::kEmpty},
    {kCmdLoginState, RequestLayout::kEmpty, ResponseLayout::kValue},
    {kCmdVerifyPin, RequestLayout::kText, ResponseLayout::kValue},
    {kCmdAskConfirmation, RequestLayout::kReason, ResponseLayout::kValue},
    {kCmdEndConfirmation, RequestLayout::kEmpty, ResponseLayout::kValue},
    {kCmdCardLimits, RequestLayout::kEmpty, ResponseLayout::kLimits},
    {kCmdChangePin, RequestLayout::kTwoTexts, ResponseLayout::kValue},
    {kCmdUnblockPin, RequestLayout::kTwoTexts, ResponseLayout::kValue},
    {kCmdGenerateKeyPair, RequestLayout::kGenerate, ResponseLayout::kPublicKey},
    {kCmdReadPublicKey, RequestLayout::kHandleSpec, ResponseLayout::kPublicKey},
    {kCmdImportKeyPair, RequestLayout::kHandleSpecData, ResponseLayout::kEmpty},
    {kCmdPrivateKeyOp, RequestLayout::kHandleSpecData, ResponseLayout::kBlock},
    {kCmdPublicKeyOp, RequestLayout::kHandleSpecData, ResponseLayout::kBlock},
    {kCmdWriteCertificate, RequestLayout::kHandleSpecData, ResponseLayout::kEmpty},
    {kCmdReadCertificate, RequestLayout::kHandleSpec, ResponseLayout::kCertificate},
    {kCmdInitToken, RequestLayout::kTwoTexts, ResponseLayout::kEmpty},
    {kCmdInitTokenPlain, RequestLayout::kEmpty, ResponseLayout::kEmpty},
};

const CommandLayout* FindLayout(uint16_t command) {
  for (const CommandLayout& layout : kLayouts) {
    if (layout.command == command) return &layout;
  }
  return nullptr;
}

void AppendWord(Bytes* out, uint32_t value) {
  uint8_t word[kWord];
  StoreLe32(word, value);
  out->insert(out->end(), word, word + kWord);
}

bool AppendText(Bytes* out, const std::string& text) {
  if (text.find('\0') != std::string::npos) return false;
  out->insert(out->end(), text.begin(), text.end());
  out->push_back(0);
  return true;
}

// A text that fills body[0..len) exactly, its NUL as the last byte and nowhere before.
bool ReadText(const uint8_t* body, size_t len, std::string* text) {
  if (len == 0 || body[len - 1] != 0) return false;
  const size_t textLen = strnlen(reinterpret_cast<const char*>(body), len);
  if (textLen != len - 1) return false;
  text->assign(reinterpret_cast<const char*>(body), textLen);
  return true;
}

FrameStatus ReadWords(const uint8_t* body, size_t len, size_t count, uint32_t* const* fields) {
  if (len != count * kWord) return FrameStatus::kBadLength;
  for (size_t i = 0; i < count; ++i) *fields[i] = LoadLe32(body + i * kWord);
  return FrameStatus::kOk;
}

}  // namespace

bool IsCardCommand(uint16_t command) { return FindLayout(command) != nullptr; }

FrameStatus BuildCardRequest(uint16_t command, const CardRequest& request, Bytes* frame) {
  const CommandLayout* layout = FindLayout(command);
  if (layout == nullptr) return FrameStatus::kBadCommand;
  Bytes body;
  switch (layout->request) {
    case RequestLayout::kEmpty:
      break;
    case RequestLayout::kText:
      if (!AppendText(&body, request.text)) return FrameStatus::kBadField;
      break;
    case RequestLayout::kTwoTexts:
      if (!AppendText(&body, request.text) || !AppendText(&body, request.text2)) {
        return FrameStatus::kBadField;
      }
      break;
    case RequestLayout::kIndex:
      AppendWord(&body, request.index);
      break;
    case RequestLayout::kReason:
      AppendWord(&body, request.reason);
      break;
    case RequestLayout::kHandle:
      AppendWord(&body, request.handle);
      break;
    case RequestLayout::kHandleSpec:
    case RequestLayout::kHandleSpecData:
      AppendWord(&body, request.handle);
      AppendWord(&body, request.keySpec);
      if (layout->request == RequestLayout::kHandleSpecData) {
        if (request.data.empty()) return FrameStatus::kBadField;
        body.insert(body.end(), request.data.begin(), request.data.end());
      }
      break;
    case RequestLayout::kGenerate:
      for (uint32_t word : {request.handle, request.keySpec, request.bits, request.exponent}) {
        AppendWord(&body, word);
      }
      break;
  }
  return BuildFrame(command, 0, body.data(), body.size(), frame);
}

FrameStatus ParseCardRequest(uint16_t command, const uint8_t* body, size_t len,
                             CardRequest* request) {
  const CommandLayout* layout = FindLayout(command);
  if (layout == nullptr) return FrameStatus::kBadCommand;
  switch (layout->request) {
    case RequestLayout::kEmpty:
      return len == 0 ? FrameStatus::kOk : FrameStatus::kBadLength;
    case RequestLayout::kText:
      return ReadText(body, len, &request->text) ? FrameStatus::kOk : FrameStatus::kBadField;
    case RequestLayout::kTwoTexts: {
      const uint8_t* end = len > 0 ? static_cast<const uint8_t*>(std::memchr(body, 0, len))
                                   : nullptr;
      if (end == nullptr) return FrameStatus::kBadField;
      const size_t first = static_cast<size_t>(end - body) + 1;
      if (!ReadText(body, first, &request->text) ||
          !ReadText(body + first, len - first, &request->text2)) {
        return FrameStatus::kBadField;
      }
      return FrameStatus::kOk;
    }
    case RequestLayout::kIndex: {
      uint32_t* fields[] = {&request->index};
      return ReadWords(body, len, 1, fields);
    }
    case RequestLayout::kHandle: {
      uint32_t* fields[] = {&request->handle};
      return ReadWords(body, len, 1, fields);
    }
    case RequestLayout::kReason: {
      uint32_t* fields[] = {&request->reason};
      return ReadWords(body, len, 1, fields);
    }
    case RequestLayout::kHandleSpec: {
      uint32_t* fields[] = {&request->handle, &request->keySpec};
      return ReadWords(body, len, 2, fields);
    }
    case RequestLayout::kHandleSpecData: {
      if (len <= 2 * kWord) return FrameStatus::kBadLength;
      uint32_t* fields[] = {&request->handle, &request->keySpec};
      ReadWords(body, 2 * kWord, 2, fields);
      request->data.assign(body + 2 * kWord, body + len);
      return FrameStatus::kOk;
    }
    case RequestLayout::kGenerate: {
      uint32_t* fields[] = {&request->handle, &request->keySpec, &request->bits,
                            &request->exponent};
      return ReadWords(body, len, 4, fields);
    }
  }
  return FrameStatus::kBadCommand;
}

FrameStatus BuildCardResponse(uint16_t requestCommand, uint32_t status,
                              const CardResponse& response, Bytes* frame) {
  const CommandLayout* layout = FindLayout(requestCommand);
  if (layout == nullptr) return FrameStatus::kBadCommand;
  Bytes body;
  if (status == 0) {
    switch (layout->response) {
      case ResponseLayout::kEmpty:
        break;
      case ResponseLayout::kValue:
        AppendWord(&body, response.value);
        break;
      case ResponseLayout::kEnumName:
      case ResponseLayout::kOpenName:
        AppendWord(&body, response.value);
        if (!AppendText(&body, response.name)) return FrameStatus::kBadField;
        if (layout->response == ResponseLayout::kEnumName &&
            (body.size() < kEnumAnswerMin || body.size() > kEnumAnswerMax)) {
          return FrameStatus::kBadField;
        }
        break;
      case ResponseLayout::kPublicKey: {
        const FrameStatus written = WritePublicKeyBlock(response.publicKey, &body);
        if (written != FrameStatus::kOk) return written;
        break;
      }
      case ResponseLayout::kBlock:
      case ResponseLayout::kCertificate:
        if (response.data.empty()) return FrameStatus::kBadField;
        body = response.data;
        break;
      case ResponseLayout::kLimits:
        WriteCardLimits(response.limits, &body);
        break;
    }
  }
  return BuildFrame(ResponseCommand(requestCommand), status, body.data(), body.size(), frame);
}

FrameStatus ParseCardResponse(uint16_t requestCommand, const uint8_t* body, size_t len,
                              size_t blockLength, CardResponse* response) {
  const CommandLayout* layout = FindLayout(requestCommand);
  if (layout == nullptr) return FrameStatus::kBadCommand;
  switch (layout->response) {
    case ResponseLayout::kEmpty:
      return len == 0 ? FrameStatus::kOk : FrameStatus::kBadLength;
    case ResponseLayout::kValue: {
      uint32_t* fields[] = {&response->value};
      return ReadWords(body, len, 1, fields);
    }
    case ResponseLayout::kEnumName: {
      if (len < kEnumAnswerMin || len > kEnumAnswerMax) return FrameStatus::kBadLength;
      response->value = LoadLe32(body);
      const char* name = reinterpret_cast<const char*>(body + kWord);
      response->name.assign(name, strnlen(name, len - kWord));
      return FrameStatus::kOk;
    }
    case ResponseLayout::kOpenName: {
      if (len <= kWord) return FrameStatus::kBadLength;
      response->value = LoadLe32(body);
      return ReadText(body + kWord, len - kWord, &response->name) ? FrameStatus::kOk
                                                                  : FrameStatus::kBadLength;
    }
    case ResponseLayout::kPublicKey:
      return ReadPublicKeyBlock(body, len, &response->publicKey);
    case ResponseLayout::kBlock:
      if (len != blockLength || len == 0) return FrameStatus::kBadLength;
      response->data.assign(body, body + len);
      return FrameStatus::kOk;
    case ResponseLayout::kCertificate:
      if (len == 0) return FrameStatus::kBadLength;
      response->data.assign(body, body + len);
      return FrameStatus::kOk;
    case ResponseLayout::kLimits:
      return ReadCardLimits(body, len, &response->limits);
  }
  return FrameStatus::kBadCommand;
}

}  // namespace nivra::frames
