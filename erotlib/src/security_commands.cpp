// Security state: BKC manifest, settings, tokens, identity and the
// revocation bits.
#include "frame.hpp"

#include <cstdio>

namespace erot
{

using namespace detail;

namespace
{

constexpr size_t bkcResponseCapacity = 130;
constexpr size_t bkcEntriesOffset = 10;
constexpr uint8_t bkcFormatVersion = 1;
constexpr uint8_t securitySettingsFormat = 1;
constexpr uint8_t revokeBitsFormat = 1;
constexpr uint8_t maxFeature = 31;
constexpr size_t identityTextSize = 2 * deviceIdSize + 1;

int parseBkcManifest(const uint8_t* response, size_t received, uint32_t* pCount,
                     BkcManifestEntry** pEntries)
{
    if (received < bkcEntriesOffset ||
        (received - bkcEntriesOffset) % sizeof(BkcManifestEntry) != 0)
    {
        std::fprintf(stderr, "Bad BKC Manifest response length %zu\n",
                     received);
        return -EPROTO;
    }
    uint8_t version = response[payloadOffset];
    if (version != bkcFormatVersion)
    {
        std::fprintf(stderr, "Unknown Get BKC Manifest format version 0x%02x\n",
                     version);
        return -EPROTO;
    }
    size_t count = (received - bkcEntriesOffset) / sizeof(BkcManifestEntry);
    if (count == 0)
    {
        return 0;
    }
    auto entries = allocate<BkcManifestEntry>(count);
    if (!entries)
    {
        return -ENOMEM;
    }
    std::memcpy(entries.get(), response + bkcEntriesOffset,
                count * sizeof(BkcManifestEntry));
    *pEntries = entries.release();
    *pCount = static_cast<uint32_t>(count);
    return 0;
}

} // namespace

int ErotGetBKCManifest(uint32_t* pCount, BkcManifestEntry** pEntries,
                       uint8_t* pErrorCode)
{
    if (pCount == nullptr || pEntries == nullptr)
    {
        return -EINVAL;
    }
    *pCount = 0;
    *pEntries = nullptr;
    std::array<uint8_t, frameHeaderSize> request{};
    std::array<uint8_t, bkcResponseCapacity> response{};
    size_t received = 0;
    int r =
        ErotTransact(opcode::bkcManifest, request.data(), request.size(),
                     response.data(), response.size(), &received, pErrorCode);
    if (!accepted(r, pErrorCode))
    {
        return r;
    }
    return parseBkcManifest(response.data(), received, pCount, pEntries);
}

int ErotGetSecuritySettings(uint32_t* pSettings, bool* pNVTokenPresent,
                            uint32_t* pNVTokenSettings, uint8_t* pErrorCode)
{
    Exchange<8, 19> exchange;
    int r = exchange.run(opcode::securitySettings, pErrorCode);
    if (!accepted(r, pErrorCode))
    {
        return r;
    }
    const uint8_t* reply = exchange.reply();
    if (reply[0] != securitySettingsFormat)
    {
        std::fprintf(stderr,
                     "Unknown Get Security Settings format version 0x%02x\n",
                     reply[0]);
        return -EPROTO;
    }
    if (pSettings != nullptr)
    {
        *pSettings = getLe32(reply + 1);
    }
    if ((pNVTokenPresent == nullptr) != (pNVTokenSettings == nullptr))
    {
        std::fprintf(stderr, "Must set both or neither pNVTokenPresent and "
                             "pNVTokenSettings");
    }
    else if (pNVTokenPresent != nullptr)
    {
        *pNVTokenPresent = reply[5] != 0;
        *pNVTokenSettings = getLe32(reply + 6);
    }
    return 0;
}

int ErotSetManageabilityFeature(uint8_t feature, uint8_t value,
                                uint8_t* pErrorCode)
{
    if (feature > maxFeature)
    {
        std::printf("Feature must be <= 31");
        return -EINVAL;
    }
    Exchange<10, minResponseSize> exchange;
    exchange.payload()[0] = feature;
    exchange.payload()[1] = value;
    return statusOnly(opcode::setManageabilityFeature, exchange, pErrorCode);
}

int ErotTokenInstall(const uint8_t* token, size_t tokenLength,
                     uint8_t* pErrorCode)
{
    if (tokenLength != tokenSize)
    {
        std::printf("Incorrect token length %lu, expected %d\n",
                    static_cast<unsigned long>(tokenLength),
                    static_cast<int>(tokenSize));
        return -EINVAL;
    }
    if (token == nullptr)
    {
        return -EINVAL;
    }
    Exchange<frameHeaderSize + 1 + tokenSize, minResponseSize> exchange;
    std::memcpy(exchange.payload() + 1, token, tokenSize);
    return statusOnly(opcode::tokenInstall, exchange, pErrorCode);
}

int ErotTokenErase(uint8_t* pErrorCode)
{
    return statusOnly(opcode::tokenErase, pErrorCode);
}

int ErotTokenRead(uint8_t** pToken, size_t* pTokenLength, uint8_t* pErrorCode)
{
    if (pToken == nullptr || pTokenLength == nullptr)
    {
        std::printf("NULL pointer");
        return -EINVAL;
    }
    *pToken = nullptr;
    *pTokenLength = 0;
    Exchange<8, payloadOffset + 1 + tokenSize> exchange;
    int r = exchange.run(opcode::tokenRead, pErrorCode);
    // Byte 9 says whether a token is installed at all.
    if (!accepted(r, pErrorCode) || exchange.reply()[0] == 0)
    {
        return r;
    }
    auto token = allocate<uint8_t>(tokenSize);
    if (!token)
    {
        return -ENOMEM;
    }
    std::memcpy(token.get(), exchange.reply() + 1, tokenSize);
    *pToken = token.release();
    *pTokenLength = tokenSize;
    return 0;
}

int ErotGetDeviceId(uint8_t* buffer, size_t bufferLength, uint8_t* pErrorCode)
{
    if (bufferLength <= deviceIdSize)
    {
        std::printf("Short Device ID buffer length %lu, expected %d\n",
                    static_cast<unsigned long>(bufferLength),
                    static_cast<int>(deviceIdSize + 1));
        return -EINVAL;
    }
    if (buffer == nullptr)
    {
        return -EINVAL;
    }
    std::memset(buffer, 0, bufferLength);
    Exchange<8, payloadOffset + deviceIdSize> exchange;
    int r = exchange.run(opcode::deviceId, pErrorCode);
    if (accepted(r, pErrorCode))
    {
        std::memcpy(buffer, exchange.reply(), deviceIdSize);
    }
    return r;
}

int ErotGetIdentityHex(char** pText, uint8_t* pErrorCode)
{
    if (pText == nullptr)
    {
        return -EINVAL;
    }
    Exchange<8, payloadOffset + deviceIdSize> exchange;
    int r = exchange.run(opcode::identityHex, pErrorCode);
    if (!accepted(r, pErrorCode))
    {
        return r;
    }
    auto text = allocate<char>(identityTextSize);
    if (!text)
    {
        return -ENOMEM;
    }
    for (size_t i = 0; i < deviceIdSize; ++i)
    {
        std::snprintf(text.get() + 2 * i, 3, "%02x", exchange.reply()[i]);
    }
    *pText = text.release();
    return 0;
}

namespace
{

// Both revocation reads: a format byte, then the bits. An unknown format is
// only warned about, and the bits are handed out on any 0 return: the
// callers test the status.
template <size_t Bits>
int readRevokeBits(uint8_t op, const char* name, uint8_t* buffer,
                   uint16_t* pOutLength, uint8_t* pErrorCode)
{
    Exchange<8, payloadOffset + 1 + Bits> exchange;
    int r = exchange.run(op, pErrorCode);
    if (r != 0)
    {
        return r;
    }
    // A refusal carries no format byte to complain about.
    uint8_t format = exchange.reply()[0];
    if (*pErrorCode == 0 && format != revokeBitsFormat)
    {
        std::fprintf(stderr, "%s unknown format %d - erotlib update required\n",
                     name, format);
    }
    std::memcpy(buffer, exchange.reply() + 1, Bits);
    *pOutLength = static_cast<uint16_t>(Bits);
    return 0;
}

} // namespace

int ErotKeyRevokeBitsGet(uint8_t* buffer, size_t length, uint16_t* pOutLength,
                         uint8_t* pErrorCode)
{
    if (length != keyRevokeBitsSize)
    {
        std::fprintf(stderr, "ErotKeyRevokeBitsGet requires length == %u\n",
                     static_cast<unsigned>(keyRevokeBitsSize));
        return -EINVAL;
    }
    if (buffer == nullptr || pOutLength == nullptr)
    {
        return -EINVAL;
    }
    return readRevokeBits<keyRevokeBitsSize>(opcode::keyRevokeBits,
                                             "ErotKeyRevokeBitsGet", buffer,
                                             pOutLength, pErrorCode);
}

int ErotSvnRevokeBitsGet(uint8_t* buffer, uint16_t* pOutLength,
                         uint8_t* pErrorCode)
{
    if (buffer == nullptr || pOutLength == nullptr)
    {
        return -EINVAL;
    }
    return readRevokeBits<svnRevokeBitsSize>(opcode::svnRevokeBits,
                                             "ErotSvnRevokeBitsGet", buffer,
                                             pOutLength, pErrorCode);
}

} // namespace erot
