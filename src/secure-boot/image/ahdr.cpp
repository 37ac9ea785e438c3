#include "secure-boot/ahdr.hpp"

#include "logging/log_line.hpp"
#include "utils/hex_text.hpp"
#include "utils/platform/platform.hpp"

#include <cstdio>
#include <cstring>
#include <fstream>

namespace orvane
{

namespace
{

using logging::level::ERR;
using logging::level::INFO;

// "0x" and `width` hex digits, as the dump shows a field.
std::string Field(unsigned value, int width)
{
    return "[0x" + HexText(value, width) + "]";
}

// A size field: its hex digits and, in brackets, its decimal value.
std::string SizeField(uint32_t value)
{
    return "[0x" + HexText(value, 8) + "(" + std::to_string(value) + ")]";
}

void Fail(AhdrVoice voice, const std::string& logText,
          const std::string& plainText)
{
    if (voice == AhdrVoice::plain)
    {
        std::printf("%s", plainText.c_str());
        std::fflush(stdout);
    }
    else
    {
        ConsoleLog(ERR) << logText;
    }
}

} // namespace

bool LoadAhdr(const std::string& path, AhdrHeader& header, AhdrVoice voice)
{
    if (voice == AhdrVoice::plain)
    {
        std::printf("Read active AHDR [%s]\n", path.c_str());
    }
    std::ifstream file(platform::path(path), std::ios::binary);
    if (!file)
    {
        Fail(voice, "Failed to open AHDR image", "Failed to open AHDR image");
        return false;
    }
    file.seekg(0, std::ios::end);
    const auto size = static_cast<long long>(file.tellg());
    ConsoleLog(INFO) << "AHDR size: [" << size << "]";
    if (size != static_cast<long long>(ahdrSize))
    {
        Fail(voice,
             "Unexpected AHDR size [" + std::to_string(size) +
                 " != " + std::to_string(ahdrSize) + "]",
             "Unexpected AHDR size [" + std::to_string(size) +
                 " != " + std::to_string(ahdrSize) + "]\n");
        return false;
    }
    std::memset(&header, 0, sizeof(header));
    file.seekg(0);
    file.read(reinterpret_cast<char*>(&header), ahdrSize);
    const auto count = file.gcount();
    ConsoleLog(INFO) << "Read " << count << " bytes from AHDR";
    if (count != static_cast<std::streamsize>(ahdrSize))
    {
        Fail(voice, "Failed to read compete AHDR",
             "Failed to read compete AHDR");
        return false;
    }
    file.close();
    DumpAhdr(path, header);
    return true;
}

void DumpAhdr(const std::string& path, const AhdrHeader& header)
{
    char magic[5] = {};
    std::memcpy(magic, &header.magic, 4);
    ConsoleLog(INFO) << "Dump AHDR [" << path << "]:";
    ConsoleLog(INFO) << "Header Magic Value=[\"" << magic << "\"]";
    ConsoleLog(INFO) << "Header Version=" << Field(header.headerVersion, 8);
    ConsoleLog(INFO) << "Flags=" << Field(header.flags, 4);
    ConsoleLog(INFO) << "Component ID=" << Field(header.componentId, 4);
    ConsoleLog(INFO) << "Current SW Version Number="
                     << Field(header.currentSWVersion, 8);
    ConsoleLog(INFO) << "Security Version Number="
                     << Field(header.securityVersion, 8);
    ConsoleLog(INFO) << "Signing Key ID=" << Field(header.signingKeyId, 8);
    ConsoleLog(INFO) << "Customer ID=" << Field(header.customerId, 4);
    ConsoleLog(INFO) << "Variant ID=" << Field(header.variantId, 4);
    ConsoleLog(INFO) << "Full Payload Size="
                     << SizeField(header.fullPayloadSize);
    ConsoleLog(INFO) << "Verifiable Payload Size="
                     << SizeField(header.verifiablePayloadSize);
}

bool CheckAhdrMagic(const AhdrHeader& header, AhdrVoice voice)
{
    if (header.magic == ahdrMagic)
    {
        return true;
    }
    Fail(voice, "Header Magic Value check failed",
         "AHDR Header Magic Value check failed");
    return false;
}

bool ReadAhdr(const std::string& path, AhdrHeader& header)
{
    return LoadAhdr(path, header, AhdrVoice::log) &&
           CheckAhdrMagic(header, AhdrVoice::log);
}

std::string RenderComponentDetails(const AhdrHeader& header)
{
    std::string text;
    for (uint8_t byte : header.componentDetails)
    {
        if (byte == 0)
        {
            break;
        }
        text += (byte >= 0x20 && byte <= 0x7e) ? static_cast<char>(byte) : '?';
    }
    return text;
}

} // namespace orvane
