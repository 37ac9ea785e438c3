#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>

namespace orvane
{

constexpr size_t ahdrSize = 578;
constexpr size_t ahdrDetailsSize = 250;
constexpr size_t ahdrSignatureSize = 292;
// "AHDR" read as a little-endian word.
constexpr uint32_t ahdrMagic = 0x52444841;

// The signed header beside every image, as it lies in the file. The SMC
// reads the fields before the signature block and hands all of it to the
// eRoT, which alone checks the signature.
struct __attribute__((packed)) AhdrHeader
{
    uint32_t magic;
    uint32_t headerVersion;
    uint16_t flags;
    uint16_t componentId;
    uint32_t currentSWVersion;
    uint32_t securityVersion;
    uint32_t signingKeyId;
    uint16_t customerId;
    uint16_t variantId;
    uint32_t fullPayloadSize;
    uint32_t verifiablePayloadSize;
    uint8_t componentDetails[ahdrDetailsSize];
    uint8_t signatureBlock[ahdrSignatureSize];
};

// The fields are read in place: the SMC is little-endian like the file.
static_assert(std::endian::native == std::endian::little);
static_assert(sizeof(AhdrHeader) == ahdrSize);
static_assert(offsetof(AhdrHeader, headerVersion) == 4);
static_assert(offsetof(AhdrHeader, flags) == 8);
static_assert(offsetof(AhdrHeader, componentId) == 10);
static_assert(offsetof(AhdrHeader, currentSWVersion) == 12);
static_assert(offsetof(AhdrHeader, securityVersion) == 16);
static_assert(offsetof(AhdrHeader, signingKeyId) == 20);
static_assert(offsetof(AhdrHeader, customerId) == 24);
static_assert(offsetof(AhdrHeader, variantId) == 26);
static_assert(offsetof(AhdrHeader, fullPayloadSize) == 28);
static_assert(offsetof(AhdrHeader, verifiablePayloadSize) == 32);
static_assert(offsetof(AhdrHeader, componentDetails) == 36);
static_assert(offsetof(AhdrHeader, signatureBlock) == 286);

// How a reader reports: the log lines of most readers, or the plain prints
// of the UBB FPGA and bundle readers.
enum class AhdrVoice
{
    log,
    plain,
};

// Reads a whole AHDR file into `header` (cleared first) and dumps its
// fields; false when it can't be opened, isn't 578 bytes or reads short,
// with its line. The magic is not looked at here.
bool LoadAhdr(const std::string& path, AhdrHeader& header, AhdrVoice voice);

// False, with its line, when the magic isn't "AHDR".
bool CheckAhdrMagic(const AhdrHeader& header, AhdrVoice voice);

// LoadAhdr and then CheckAhdrMagic, in the log voice: the dump stays before
// the check so that a bad header can be read in the log. The buffer keeps
// what was read even when the magic is wrong.
bool ReadAhdr(const std::string& path, AhdrHeader& header);

// The field dump, one line each, from "Dump AHDR [path]:" on.
void DumpAhdr(const std::string& path, const AhdrHeader& header);

// ComponentDetails as text: up to the first NUL, with each byte outside
// 0x20..0x7E replaced by '?', so that the text is valid on D-Bus.
std::string RenderComponentDetails(const AhdrHeader& header);

} // namespace orvane
