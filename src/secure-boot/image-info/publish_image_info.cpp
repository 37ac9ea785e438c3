#include "secure-boot/publish_image_info.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/fw_type.hpp"
#include "secure-boot/image_info_bus.hpp"
#include "utils/dbus_handler.hpp"
#include "utils/hex_text.hpp"

namespace orvane
{

namespace
{

using logging::level::ERR;
using logging::level::INFO;

constexpr const char* missing = "NaN";

// "0x" and the value's bytes, most significant first.
std::string hexBytes(unsigned value, int bytes)
{
    return "0x" + HexText(value, 2 * bytes);
}

} // namespace

ImageInfoTexts FormatImageInfo(uint32_t componentId, const AhdrHeader& ahdr,
                               const erot::BkcManifestEntry& bkcEntry,
                               const erot::ComponentInfo* componentInfo)
{
    ImageInfoTexts texts;
    texts.version = hexBytes(ahdr.currentSWVersion, 4);
    texts.securityVersion = hexBytes(ahdr.securityVersion, 4);
    texts.signingKeyId = hexBytes(ahdr.signingKeyId, 4);
    texts.customerId = hexBytes(ahdr.customerId, 2);
    texts.variantId = hexBytes(ahdr.variantId, 2);
    texts.componentDetails = RenderComponentDetails(ahdr);
    texts.bkcVersion =
        bkcEntry.version == 0 ? missing : hexBytes(bkcEntry.version, 4);
    // The eRoT's record counts only when it is this component's.
    if (componentInfo != nullptr && componentInfo->componentId == componentId)
    {
        texts.keyRevokeStatus = hexBytes(componentInfo->keyRevocationStatus, 1);
        texts.svnRevokeStatus = hexBytes(componentInfo->svnRevocationStatus, 1);
    }
    else
    {
        texts.keyRevokeStatus = missing;
        texts.svnRevokeStatus = missing;
    }
    return texts;
}

void PublishImageInfo(uint32_t componentId, const AhdrHeader& ahdr,
                      const erot::BkcManifestEntry& bkcEntry,
                      const erot::ComponentInfo* componentInfo)
{
    ConsoleLog(INFO) << "Updating to the cache information to DBUS...";
    const ImageInfoTexts texts =
        FormatImageInfo(componentId, ahdr, bkcEntry, componentInfo);
    // In the order of imageInfoProperties.
    const std::array<const std::string*, 9> values{
        &texts.version,    &texts.securityVersion, &texts.signingKeyId,
        &texts.customerId, &texts.variantId,       &texts.componentDetails,
        &texts.bkcVersion, &texts.keyRevokeStatus, &texts.svnRevokeStatus};
    constexpr std::array<const char*, 9> labels{
        "currentSWVersion: ", "SecurityVersionNumber: ",
        "SigningKeyId: ",     "CustomerId: ",
        "VariantId: ",        "ComponentDetails: ",
        "BKC_Version: ",      "KeyRevokeStatus: ",
        "SVNRevokeStatus: "};
    for (size_t i = 0; i < values.size(); ++i)
    {
        ConsoleLog(INFO) << labels[i] << *values[i];
    }

    const FwNames* names = FindFwNames(componentId);
    if (names == nullptr)
    {
        ConsoleLog(ERR) << "Unknown Firmware type. Cannot cache the "
                           "information from signature.";
        return;
    }
    const std::string interface =
        ImageInfoInterface(std::string(names->busSuffix));
    for (size_t i = 0; i < values.size(); ++i)
    {
        SetBusProperty(interface, imageInfoProperties[i].name, *values[i]);
    }
}

} // namespace orvane
