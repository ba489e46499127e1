// Controls of the test-only card back end inside nivracsp_fake.dll (resolved with GetProcAddress).
#pragma once
#include <cstdint>

// What the last card operations received.
struct FakeCardRecord {
  uint32_t mode;
  uint32_t openFlags;
  uint32_t genKeyBits;
  uint32_t closeCount;
  uint32_t inputLength;
  uint8_t input[1024];
  char lastPin[64];
};

// serviceCards devices "svc0".., bluetoothCards devices "bt0"..; containerOn names the device
// that holds the container when a silent acquire searches for it.
using FakeCardResetFn = void (*)(uint32_t serviceCards, uint32_t bluetoothCards,
                                 const char* containerOn);
using FakeCardSetOpenResultFn = void (*)(uint32_t status);
using FakeCardRecordGetFn = void (*)(FakeCardRecord* out);
using FakeCardObjectBiasCounterFn = uint32_t (*)();
using FakeCardSetObjectBiasCounterFn = void (*)(uint32_t value);
