#include "erot/image_signer.hpp"

#include "erot/sha384.hpp"
#include "erot/signature_block.hpp"

#include <fstream>
#include <stdexcept>

namespace ubbsim::erot
{

namespace
{

void writeFile(const std::filesystem::path& path, std::span<const uint8_t> data)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(data.data()),
               static_cast<std::streamsize>(data.size()));
    if (!file)
    {
        throw std::runtime_error("cannot write " + path.string());
    }
}

} // namespace

SignedImage signImage(AhdrFields fields, std::vector<uint8_t> payload,
                      const EcKey& key, uint8_t keyIndex, bool headerOnly)
{
    SignedImage image;
    fields.keyId = keyIndex;
    fields.fullPayloadSize = static_cast<uint32_t>(payload.size());
    fields.verifiablePayloadSize =
        headerOnly ? 0 : static_cast<uint32_t>(payload.size());
    if (!headerOnly)
    {
        image.digest = sha384(payload);
    }
    image.ahdr = buildAhdr(fields);
    signAhdr(image.ahdr, image.digest, key, keyIndex);
    image.payload = std::move(payload);
    return image;
}

void writeImagePair(const std::filesystem::path& stem, const SignedImage& image,
                    bool withAhdr, bool withImage)
{
    if (withImage)
    {
        writeFile(std::filesystem::path(stem.string() + ".bin"), image.payload);
    }
    if (withAhdr)
    {
        writeFile(std::filesystem::path(stem.string() + ".ahdr"), image.ahdr);
    }
}

std::vector<uint8_t> generatedPayload(uint16_t componentId, uint32_t version,
                                      size_t size)
{
    // A small linear congruential sequence: cheap, and different for every
    // component and version.
    uint32_t x =
        (static_cast<uint32_t>(componentId) << 16) ^ version ^ 0x9E3779B9U;
    std::vector<uint8_t> payload(size);
    for (uint8_t& byte : payload)
    {
        x = x * 1664525U + 1013904223U;
        byte = static_cast<uint8_t>(x >> 24);
    }
    return payload;
}

} // namespace ubbsim::erot
