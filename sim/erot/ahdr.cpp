#include "erot/ahdr.hpp"

#include "erot/byte_order.hpp"

#include <algorithm>
#include <cstring>

namespace ubbsim::erot
{

AhdrBytes buildAhdr(const AhdrFields& fields)
{
    AhdrBytes bytes{};
    putLe32(bytes, 0, ahdrMagic);
    putLe32(bytes, 4, fields.headerVersion);
    putLe16(bytes, 8, fields.flags);
    putLe16(bytes, 10, fields.componentId);
    putLe32(bytes, 12, fields.version);
    putLe32(bytes, 16, fields.svn);
    putLe32(bytes, 20, fields.keyId);
    putLe16(bytes, 24, fields.customerId);
    putLe16(bytes, 26, fields.variantId);
    putLe32(bytes, 28, fields.fullPayloadSize);
    putLe32(bytes, 32, fields.verifiablePayloadSize);
    size_t length = std::min(fields.details.size(), detailsSize);
    std::memcpy(bytes.data() + 36, fields.details.data(), length);
    return bytes;
}

std::optional<AhdrFields> parseAhdr(std::span<const uint8_t, ahdrSize> bytes)
{
    if (le32(bytes, 0) != ahdrMagic)
    {
        return std::nullopt;
    }
    AhdrFields fields;
    fields.headerVersion = le32(bytes, 4);
    fields.flags = le16(bytes, 8);
    fields.componentId = le16(bytes, 10);
    fields.version = le32(bytes, 12);
    fields.svn = le32(bytes, 16);
    fields.keyId = le32(bytes, 20);
    fields.customerId = le16(bytes, 24);
    fields.variantId = le16(bytes, 26);
    fields.fullPayloadSize = le32(bytes, 28);
    fields.verifiablePayloadSize = le32(bytes, 32);
    const char* details = reinterpret_cast<const char*>(bytes.data() + 36);
    fields.details.assign(details, strnlen(details, detailsSize));
    return fields;
}

} // namespace ubbsim::erot
