// The provider's own parameters, beyond CryptoAPI's PP_* values.
#pragma once
#include <windows.h>

namespace nivra::provider {

constexpr DWORD PP_NIVRA_CHANGE_PIN = 22201;        // "old\0new\0"
constexpr DWORD PP_NIVRA_UNBLOCK_PIN = 22202;       // "admin\0newUser\0"
constexpr DWORD PP_NIVRA_INIT_TOKEN = 22203;        // "admin\0user\0"
constexpr DWORD PP_NIVRA_PIN_LENGTHS = 22204;       // (min << 16) | max
constexpr DWORD PP_NIVRA_PIN_FLAGS = 22205;
constexpr DWORD PP_NIVRA_DEVICE_COMMAND = 22206;    // Bluetooth cards only
constexpr DWORD PP_NIVRA_CARD_ID = 22207;           // 16 bytes
constexpr DWORD PP_NIVRA_INIT_TOKEN_NO_PIN = 22208;
constexpr DWORD PP_NIVRA_MODE_TOKEN = 22209;        // Bluetooth cards only
constexpr DWORD PP_NIVRA_SLOT_ID = 0x80000001;      // token slots only
constexpr DWORD PP_NIVRA_PROMPT_PIN = 0x80000002;   // token slots picked in the selection dialog

}  // namespace nivra::provider
