#include "erot/board_erot.hpp"

#include "erot/certificate_chain.hpp"
#include "erot/fw_components.hpp"
#include "erot/image_signer.hpp"
#include "erot/sha384.hpp"

#include <openssl/evp.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>

namespace ubbsim::erot
{

namespace fs = std::filesystem;

namespace
{

constexpr size_t payloadSize = 8192;
constexpr uint32_t defaultSvn = 1;
constexpr uint32_t defaultMinSvn = 1;
constexpr uint16_t rmId = 0x0800;
constexpr uint16_t ubbFpgaComponent = 0x0400;

const char* const sideDirectories[] = {"A", "B"};

uint32_t defaultVersion(uint16_t id)
{
    return 0x01000000U | id;
}

std::string details(const FwComponent& component, uint32_t version)
{
    char text[64];
    std::snprintf(text, sizeof(text), "%s firmware 0x%08x",
                  std::string(component.name).c_str(), version);
    return text;
}

const ErotImageMark* markFor(const ErotScenario& scenario,
                             const FwComponent& component, int side)
{
    auto found = std::find_if(
        scenario.images.begin(), scenario.images.end(), [&](const auto& m) {
            return m.component == component.name && m.side == side;
        });
    return found == scenario.images.end() ? nullptr : &*found;
}

SideInfo sideInfo(const SignedImage& image, const AhdrFields& fields)
{
    SideInfo info;
    info.version = fields.version;
    info.svn = fields.svn;
    info.customerId = fields.customerId;
    info.variantId = fields.variantId;
    info.details = fields.details;
    auto parsed = parseAhdr(image.ahdr);
    info.keyId = parsed->keyId;
    info.digest = image.digest;
    info.hashValid = true;
    return info;
}

// The images of one component signed so far, by SVN and key: a build
// signs an image once, so both sides of a healthy board hold the same
// bytes, signature included.
using SignedImages = std::map<std::pair<uint32_t, uint8_t>, SignedImage>;

// One side of one component: its image signed (and spoilt) as marked,
// written unless it has no file or is missing.
SideInfo prepareSide(const FwComponent& component, AhdrFields fields,
                     const ErotImageMark* mark, const BoardKeys& keys,
                     const fs::path& directory, SignedImages& signedOnce,
                     bool withImage)
{
    using Kind = ErotImageMark::Kind;
    std::optional<Kind> kind;
    if (mark)
    {
        kind = mark->kind;
    }
    const EcKey* key = &keys.trusted;
    uint8_t index = trustedKeyIndex;
    if (kind == Kind::revokedKey)
    {
        key = &keys.revoked;
        index = revokedKeyIndex;
    }
    if (kind == Kind::unknownKey)
    {
        key = &keys.unknown;
        index = unknownKeyIndex;
    }
    auto [found, fresh] = signedOnce.try_emplace({fields.svn, index});
    if (fresh)
    {
        found->second = signImage(
            fields, generatedPayload(component.id, fields.version, payloadSize),
            *key, index, component.id == bundleId);
    }
    SignedImage image = found->second;
    SideInfo info = sideInfo(image, fields);
    if (kind == Kind::tampered)
    {
        image.payload[image.payload.size() / 2] ^= 0x5A;
    }
    bool written = !component.stem.empty() && kind != Kind::missing;
    if (written)
    {
        writeImagePair(directory / component.stem, image, component.hasAhdr,
                       withImage);
    }
    return info;
}

ErotComponentSetting settingFor(const ErotScenario& scenario,
                                const FwComponent& component)
{
    auto given = scenario.components.find(std::string(component.name));
    return given == scenario.components.end() ? ErotComponentSetting{}
                                              : given->second;
}

ComponentState prepareComponent(const ErotScenario& scenario,
                                const FwComponent& component,
                                const fs::path& root, const BoardKeys& keys)
{
    const ErotComponentSetting setting = settingFor(scenario, component);
    ComponentState state;
    state.id = component.id;
    state.minSvn = setting.minSvn.value_or(defaultMinSvn);
    if (setting.bootSide)
    {
        state.bootSide = static_cast<uint8_t>(*setting.bootSide);
    }
    AhdrFields fields;
    fields.componentId = component.id;
    fields.version = setting.version.value_or(defaultVersion(component.id));
    fields.svn = setting.svn.value_or(defaultSvn);
    fields.details = details(component, fields.version);
    SignedImages signedOnce;
    for (int side = 0; side < 2; ++side)
    {
        fs::path directory = root / "var/lib/images" / sideDirectories[side];
        AhdrFields sideFields = fields;
        const ErotImageMark* mark = markFor(scenario, component, side);
        if (mark && mark->kind == ErotImageMark::Kind::lowSvn)
        {
            // Just below the committed minimum, whatever that is.
            sideFields.svn = state.minSvn - 1;
        }
        // The UBB FPGA runs from its own flash: a file of its image is
        // there only while an update waits to be programmed.
        const bool withImage = component.id != ubbFpgaComponent ||
                               std::find(scenario.stagedUbbFpga.begin(),
                                         scenario.stagedUbbFpga.end(),
                                         side) != scenario.stagedUbbFpga.end();
        state.sides[side] = prepareSide(component, sideFields, mark, keys,
                                        directory, signedOnce, withImage);
        state.sides[side].keyRevocation = setting.keyRevocation;
        state.sides[side].svnRevocation = setting.svnRevocation;
    }
    return state;
}

// The scenario's entries, then the eRoT's own at power-on: its version and
// the side the SMC boots from.
void preloadTraceLog(const ErotScenario& scenario, ErotState& state)
{
    uint64_t timestamp = 0;
    for (const ErotTraceSetting& setting : scenario.traceLog)
    {
        TraceRecord record;
        record.timestamp = timestamp++;
        std::memcpy(record.tag.data(), setting.tag.data(), record.tag.size());
        record.data1 = setting.data1;
        record.data2 = setting.data2;
        record.severity = static_cast<uint8_t>(setting.severity);
        state.traceLog.push_back(record);
    }
    TraceRecord boot;
    boot.timestamp = timestamp;
    std::memcpy(boot.tag.data(), "BOOT", boot.tag.size());
    const ComponentState* self = state.component(fwComponents[0].id);
    boot.data1 = self->sides[state.activeSide].version;
    boot.data2 = state.activeSide;
    state.traceLog.push_back(boot);
}

void setIdentity(const BoardKeys& keys, ErotState& state)
{
    std::vector<uint8_t> publicKey = keys.identity.publicDer();
    state.identity = sha384(publicKey);
    std::vector<uint8_t> seed(state.identity.begin(), state.identity.end());
    seed.push_back('#');
    state.deviceId = sha384(seed);
    state.certChain = makeCertificateChain(keys.identity);
}

} // namespace

BoardKeys generateBoardKeys()
{
    return {EcKey::generate(), EcKey::generate(), EcKey::generate(),
            EcKey::generate()};
}

ErotState setUpBoardErot(const ErotScenario& scenario, const fs::path& root,
                         const BoardKeys& keys)
{
    for (const char* side : sideDirectories)
    {
        fs::create_directories(root / "var/lib/images" / side);
    }
    ErotState state;
    state.activeSide = state.pendingSide =
        static_cast<uint8_t>(scenario.activeSide);
    state.updateOnReboot = scenario.updateOnReboot;
    state.autoArb = scenario.autoArb;
    state.health = scenario.health;
    state.keys = {{trustedKeyIndex, keys.trusted.publicDer(), false},
                  {revokedKeyIndex, keys.revoked.publicDer(), true}};
    for (const FwComponent& component : fwComponents)
    {
        if (!carried(scenario.dualRetimers, component.id))
        {
            continue;
        }
        ComponentState entry =
            prepareComponent(scenario, component, root, keys);
        state.bkcManifest.emplace_back(
            entry.id, settingFor(scenario, component)
                          .manifest.value_or(
                              entry.sides[state.runningSide(entry)].version));
        state.components.push_back(std::move(entry));
    }
    if (scenario.secureBootFinished.value_or(false))
    {
        state.persist[persistFlagsByte] |= persistBootFinished;
    }
    if (scenario.smcFpgaRecoveryTried)
    {
        state.persist[persistFpgaFlippedByte] = 1;
    }
    preloadTraceLog(scenario, state);
    setIdentity(keys, state);
    return state;
}

std::vector<uint8_t> signedPayload(const ErotState& state, uint16_t id,
                                   int side)
{
    const ComponentState* component = state.component(id);
    if (component == nullptr)
    {
        return {};
    }
    return generatedPayload(
        id, component->sides[static_cast<size_t>(side)].version, payloadSize);
}

std::array<uint8_t, 32> rmImageSha256(const fs::path& root, int side)
{
    std::array<uint8_t, 32> digest{};
    auto id = componentById(rmId);
    std::ifstream file(root / "var/lib/images" / sideDirectories[side] /
                           (std::string(id->stem) + ".bin"),
                       std::ios::binary);
    if (!file)
    {
        return digest;
    }
    return sha256Of(std::vector<uint8_t>((std::istreambuf_iterator<char>(file)),
                                         std::istreambuf_iterator<char>()));
}

std::array<uint8_t, 32> sha256Of(const std::vector<uint8_t>& data)
{
    std::array<uint8_t, 32> digest{};
    unsigned int length = 0;
    EVP_Digest(data.data(), data.size(), digest.data(), &length, EVP_sha256(),
               nullptr);
    return digest;
}

} // namespace ubbsim::erot
