// Command codes of the local card service protocol. A response carries its request's command with
// kResponseBit set; the two control commands and the slot frame answer with the codes below.
#pragma once
#include <cstdint>

namespace nivra::frames {

constexpr uint16_t kResponseBit = 0x8000;

constexpr uint16_t kCmdHello = 0x1011;           // module's public key, opens a channel
constexpr uint16_t kCmdSessionKey = 0x9011;      // the service's answer to the hello
constexpr uint16_t kCmdSlotList = 0x7001;        // control: every published slot
constexpr uint16_t kCmdSlotInfo = 0x7002;        // control: one slot by ID
constexpr uint16_t kCmdSlotFrame = 0x7011;       // channel: slot ID + one card command frame
constexpr uint16_t kCmdSlotListAnswer = 0xF001;
constexpr uint16_t kCmdSlotInfoAnswer = 0xF002;
constexpr uint16_t kCmdSlotFrameAnswer = 0xF011;

// Service cards and Bluetooth devices: the two lists on connections of their own, the device
// frame that carries one card command to a device on a channel, and the key exchange on a service
// card's own port, where the module chooses the session key.
constexpr uint16_t kCmdCardList = 0x4001;
constexpr uint16_t kCmdCardListAnswer = 0xC001;
constexpr uint16_t kCmdDeviceList = 0x4101;
constexpr uint16_t kCmdDeviceListAnswer = 0xC101;
constexpr uint16_t kCmdDeviceFrame = 0x5101;
constexpr uint16_t kCmdDeviceNotice = 0x4006;    // a device's name and a value, on its own
                                                 // connection; the answer is not used
constexpr uint16_t kCmdKeyOffer = 0x1001;        // module: the card name it wants to talk to
constexpr uint16_t kCmdCardKey = 0x9001;         // card: its RSA public key
constexpr uint16_t kCmdCardSessionKey = 0x1002;  // module: the session secret for the card
constexpr uint16_t kCmdCardSessionAck = 0x9002;  // card: status 0 opens the session

// Card commands carried inside a slot frame.
constexpr uint16_t kCmdCreateContainer = 0x2001;
constexpr uint16_t kCmdEnumContainers = 0x2002;
constexpr uint16_t kCmdOpenContainer = 0x2003;
constexpr uint16_t kCmdDeleteContainer = 0x2004;
constexpr uint16_t kCmdLoginState = 0x2011;
constexpr uint16_t kCmdVerifyPin = 0x2012;
constexpr uint16_t kCmdChangePin = 0x2015;
constexpr uint16_t kCmdUnblockPin = 0x2016;
constexpr uint16_t kCmdGenerateKeyPair = 0x2021;
constexpr uint16_t kCmdReadPublicKey = 0x2022;
constexpr uint16_t kCmdImportKeyPair = 0x2023;
constexpr uint16_t kCmdPrivateKeyOp = 0x2024;
constexpr uint16_t kCmdPublicKeyOp = 0x2025;
constexpr uint16_t kCmdWriteCertificate = 0x2031;
constexpr uint16_t kCmdReadCertificate = 0x2032;
constexpr uint16_t kCmdAskConfirmation = 0x2013;  // start a confirmation on the device
constexpr uint16_t kCmdEndConfirmation = 0x2014;  // stop waiting for it
constexpr uint16_t kCmdCardLimits = 0x2041;       // key and PIN length limits
constexpr uint16_t kCmdInitToken = 0x2101;
constexpr uint16_t kCmdInitTokenPlain = 0x2102;

constexpr uint16_t ResponseCommand(uint16_t request) { return request | kResponseBit; }

}  // namespace nivra::frames
