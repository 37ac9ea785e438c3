// Security settings, identity, revocation bits, the token and the record
// slot: small fixed-size answers shown in hex.
#include "read_commands.hpp"
#include "text_format.hpp"

#include <array>
#include <erotlib/erot.hpp>

namespace erotctl
{

namespace
{

// The report of a read whose whole answer is one block of bytes.
Result bytesRead(const std::string& command, const char* key,
                 const uint8_t* data, size_t length)
{
    std::string hex = hexBytes(data, length);
    return succeeded(command, std::string(key) + " " + hex + "\n",
                     {{key, hex}});
}

} // namespace

Result readSecuritySettings(const Invocation& call)
{
    uint32_t settings = 0;
    bool tokenPresent = false;
    uint32_t tokenSettings = 0;
    uint8_t status = 0;
    int r = erot::ErotGetSecuritySettings(&settings, &tokenPresent,
                                          &tokenSettings, &status);
    if (failed(r, status))
    {
        return failure(call.command, r, status);
    }
    std::string text = "settings " + hexNumber(settings, 8) +
                       "\nNV token present " + yesNo(tokenPresent) +
                       "\nNV token settings " + hexNumber(tokenSettings, 8) +
                       "\n";
    return succeeded(call.command, text,
                     {{"settings", hexNumber(settings, 8)},
                      {"nvTokenPresent", tokenPresent},
                      {"nvTokenSettings", hexNumber(tokenSettings, 8)}});
}

Result readDeviceId(const Invocation& call)
{
    // One byte more than the identifier: the library insists on the room.
    std::array<uint8_t, erot::deviceIdSize + 1> id{};
    uint8_t status = 0;
    int r = erot::ErotGetDeviceId(id.data(), id.size(), &status);
    if (failed(r, status))
    {
        return failure(call.command, r, status);
    }
    return bytesRead(call.command, "deviceId", id.data(), erot::deviceIdSize);
}

Result readIdentityHex(const Invocation& call)
{
    char* raw = nullptr;
    uint8_t status = 0;
    int r = erot::ErotGetIdentityHex(&raw, &status);
    erot::Owned<char> text(raw);
    if (failed(r, status))
    {
        return failure(call.command, r, status);
    }
    std::string identity = text ? printable(text.get(), 96) : "";
    return succeeded(call.command, "identity " + identity + "\n",
                     {{"identity", identity}});
}

Result readKeyRevokeBits(const Invocation& call)
{
    std::array<uint8_t, erot::keyRevokeBitsSize> bits{};
    uint16_t length = 0;
    uint8_t status = 0;
    int r =
        erot::ErotKeyRevokeBitsGet(bits.data(), bits.size(), &length, &status);
    if (failed(r, status))
    {
        return failure(call.command, r, status);
    }
    return bytesRead(call.command, "keyRevokeBits", bits.data(), bits.size());
}

Result readSvnRevokeBits(const Invocation& call)
{
    std::array<uint8_t, erot::svnRevokeBitsSize> bits{};
    uint16_t length = 0;
    uint8_t status = 0;
    int r = erot::ErotSvnRevokeBitsGet(bits.data(), &length, &status);
    if (failed(r, status))
    {
        return failure(call.command, r, status);
    }
    return bytesRead(call.command, "svnRevokeBits", bits.data(), bits.size());
}

Result readTokenRead(const Invocation& call)
{
    uint8_t* raw = nullptr;
    size_t length = 0;
    uint8_t status = 0;
    int r = erot::ErotTokenRead(&raw, &length, &status);
    erot::Owned<uint8_t> token(raw);
    if (failed(r, status))
    {
        return failure(call.command, r, status);
    }
    if (!token)
    {
        return succeeded(call.command, "no token installed\n",
                         {{"present", false}, {"length", 0}});
    }
    std::string hex = hexBytes(token.get(), length);
    return succeeded(call.command,
                     "token (" + std::to_string(length) + " bytes) " + hex +
                         "\n",
                     {{"present", true}, {"length", length}, {"token", hex}});
}

Result readRecordGet(const Invocation& call)
{
    bool present = false;
    std::array<uint8_t, erot::recordSize> record{};
    uint8_t status = 0;
    int r = erot::ErotRecordGet(&present, record.data(), &status);
    if (failed(r, status))
    {
        return failure(call.command, r, status);
    }
    if (!present)
    {
        return succeeded(call.command, "no record stored\n",
                         {{"present", false}});
    }
    std::string hex = hexBytes(record.data(), record.size());
    return succeeded(call.command, "record " + hex + "\n",
                     {{"present", true}, {"record", hex}});
}

} // namespace erotctl
