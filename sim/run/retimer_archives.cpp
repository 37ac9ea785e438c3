#include "run/retimer_archives.hpp"

#include "erot/fw_components.hpp"
#include "erot/image_signer.hpp"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace ubbsim
{

namespace fs = std::filesystem;

namespace
{

// Older than the two images the eRoT signs, and of the same size.
constexpr uint32_t earlierVersion = 0x00900600;
constexpr size_t earlierBytes = 8192;

constexpr const char* archiveDir = "var/lib/orvane/retimer_images";

fs::path sideDir(const std::string& root, uint8_t side)
{
    return fs::path(root) / "var/lib/images" / (side == 0 ? "A" : "B");
}

// The earlier build signed its image under a key of its own; nothing on
// this board verifies it again.
void writeEarlierPair(const std::string& root)
{
    erot::AhdrFields fields;
    fields.componentId = erot::retimerId;
    fields.version = earlierVersion;
    fields.svn = 1;
    fields.details = "Retimer firmware 0x00900600";
    const erot::SignedImage image = erot::signImage(
        fields, earlierRetimerImage(), erot::EcKey::generate(), 0);
    for (uint8_t side : {0, 1})
    {
        erot::writeImagePair(sideDir(root, side) / "retimer", image);
    }
}

// <stem>_0x<id>.tar with <stem>.ahdr and <stem>.ihx, the signed pair of
// the active side.
void archive(const std::string& root, const erot::FwComponent& component,
             uint8_t activeSide)
{
    const std::string stem(component.stem);
    char idText[8];
    std::snprintf(idText, sizeof(idText), "0x%x", component.id);
    const fs::path dir = fs::path(root) / archiveDir;
    const fs::path staging = dir / ("." + stem);
    fs::create_directories(staging);
    fs::copy_file(sideDir(root, activeSide) / (stem + ".ahdr"),
                  staging / (stem + ".ahdr"),
                  fs::copy_options::overwrite_existing);
    fs::copy_file(sideDir(root, activeSide) / (stem + ".bin"),
                  staging / (stem + ".ihx"),
                  fs::copy_options::overwrite_existing);
    const fs::path tar = dir / (stem + "_" + idText + ".tar");
    const std::string command = "tar -cf '" + tar.string() + "' -C '" +
                                staging.string() + "' " + stem + ".ahdr " +
                                stem + ".ihx";
    if (std::system(command.c_str()) != 0)
    {
        throw std::runtime_error("could not make the retimer archive " +
                                 tar.string());
    }
    fs::remove_all(staging);
}

} // namespace

std::vector<uint8_t> earlierRetimerImage()
{
    return erot::generatedPayload(erot::retimerId, earlierVersion,
                                  earlierBytes);
}

void prepareManualRetimerUpdate(const std::string& root,
                                const ManualRetimerUpdate& update,
                                uint8_t activeSide)
{
    fs::create_directories(fs::path(root) / archiveDir);
    for (uint16_t id : {erot::retimer1Id, erot::retimer2Id})
    {
        const erot::FwComponent component = *erot::componentById(id);
        const std::string name(component.name);
        if (update.archived.contains(name))
        {
            archive(root, component, activeSide);
        }
        for (uint8_t side : {0, 1})
        {
            if (side != activeSide || !update.stored.contains(name))
            {
                for (const char* extension : {".bin", ".ahdr"})
                {
                    fs::remove(sideDir(root, side) /
                               (std::string(component.stem) + extension));
                }
            }
        }
    }
    writeEarlierPair(root);
    std::ofstream(fs::path(root) / archiveDir / "enable_manual_retimer_update")
        << (update.flag ? "1" : "0") << "\n";
}

} // namespace ubbsim
