#include "run/smc_flash.hpp"

#include "erot/fw_components.hpp"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace ubbsim
{

namespace fs = std::filesystem;

namespace
{

using Bytes = std::vector<char>;

Bytes readAll(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

// An older image of the same size: one byte changed in its middle.
Bytes older(Bytes image)
{
    if (image.empty())
    {
        image.push_back(0);
    }
    image[image.size() / 2] ^= 0x5A;
    return image;
}

// The image at the start of the partition; the rest stays as it was.
void program(const fs::path& partition, const Bytes& image)
{
    std::fstream out(partition,
                     std::ios::binary | std::ios::in | std::ios::out);
    out.write(image.data(), static_cast<std::streamsize>(image.size()));
}

fs::path sideDir(const std::string& root, uint8_t side)
{
    return fs::path(root) / "var/lib/images" / (side == 0 ? "A" : "B");
}

// The side that a file's component doesn't boot from.
uint8_t inactiveSideOf(const erot::ErotState& erot, const std::string& file)
{
    for (const erot::FwComponent& component : erot::fwComponents)
    {
        const std::string stem(component.stem);
        if (!stem.empty() && (file == stem + ".bin" || file == stem + ".ahdr"))
        {
            const erot::ComponentState* state = erot.component(component.id);
            uint8_t running =
                state ? erot.runningSide(*state) : erot.activeSide;
            return running == 0 ? 1 : 0;
        }
    }
    return erot.activeSide == 0 ? 1 : 0;
}

} // namespace

void prepareInactiveSide(const std::string& root, const Scenario& scenario,
                         const erot::ErotState& erot)
{
    const FirmwareCopyScenario& copy = scenario.firmwareCopy;
    const uint8_t running = erot.activeSide;
    const Bytes runningImage = readAll(sideDir(root, running) / "smc.bin");
    const Bytes backupImage = readAll(sideDir(root, running ^ 1) / "smc.bin");
    program(fs::path(root) / "dev/mtd0", runningImage);
    program(fs::path(root) / "dev/mtd/bmc_backup",
            copy.backupFlashDiffers ? older(backupImage) : backupImage);
    for (const std::string& file : copy.inactiveDiffers)
    {
        fs::path path = sideDir(root, inactiveSideOf(erot, file)) / file;
        Bytes image = older(readAll(path));
        std::ofstream(path, std::ios::binary)
            .write(image.data(), static_cast<std::streamsize>(image.size()));
    }
    for (const std::string& file : copy.inactiveOnly)
    {
        std::ofstream(sideDir(root, inactiveSideOf(erot, file)) / file)
            << "left by an earlier retimer layout\n";
    }
}

std::string flashEraseScript(const Scenario& scenario)
{
    std::string script;
    if (!scenario.firmwareCopy.eraseFails.empty())
    {
        script += "case \"$1\" in */" + scenario.firmwareCopy.eraseFails +
                  ") echo \"flash_eraseall: $1: erase failed\" >&2; exit 1 "
                  ";; esac\n";
    }
    // NOR flash erases to all ones.
    return script + "size=$(stat -L -c %s \"$1\") || exit 1\n"
                    "head -c \"$size\" /dev/zero | tr '\\000' '\\377' | "
                    "dd of=\"$1\" conv=notrunc status=none || exit 1\n";
}

} // namespace ubbsim
