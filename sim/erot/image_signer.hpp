#pragma once

#include "erot/ahdr.hpp"
#include "erot/ec_key.hpp"
#include "erot/erot_state.hpp"

#include <filesystem>
#include <vector>

namespace ubbsim::erot
{

// An image and its signed header, as the SMC's storage holds them.
struct SignedImage
{
    std::vector<uint8_t> payload;
    AhdrBytes ahdr{};
    Digest digest{}; // what the signature block carries
};

// Signs `payload` with the header fields; the payload sizes and the key id
// are filled in here. A header-only image (the firmware bundle) signs a
// digest of zeros, since the SMC sends none for it.
SignedImage signImage(AhdrFields fields, std::vector<uint8_t> payload,
                      const EcKey& key, uint8_t keyIndex,
                      bool headerOnly = false);

// <stem>.bin and, unless `withAhdr` is false, <stem>.ahdr.
void writeImagePair(const std::filesystem::path& stem, const SignedImage& image,
                    bool withAhdr = true, bool withImage = true);

// Payload bytes that stand for a component's firmware: the same for the
// same component, version and size.
std::vector<uint8_t> generatedPayload(uint16_t componentId, uint32_t version,
                                      size_t size);

} // namespace ubbsim::erot
