#include "board/spi_flash.hpp"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>

namespace ubbsim
{

namespace fs = std::filesystem;

namespace
{

const std::string controller = "1e631000.spi";
const std::string driverDir = "/sys/bus/platform/drivers/aspeed-smc/";
const std::string deviceDir = "/sys/devices/platform/ahb/1e631000.spi";
const std::string partitionName = "ubb-spi2:0";
// Flash chips come in whole erase blocks; what an image leaves is erased.
constexpr size_t eraseBlock = 64 * 1024;

std::vector<uint8_t> chipContents(const std::vector<uint8_t>& image)
{
    std::vector<uint8_t> chip(image);
    size_t blocks =
        std::max<size_t>(1, (image.size() + eraseBlock - 1) / eraseBlock);
    chip.resize(blocks * eraseBlock, 0xFF);
    return chip;
}

void writeFile(const fs::path& path, const std::vector<uint8_t>& bytes)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

std::string trimmed(const std::string& text)
{
    size_t end = text.find_last_not_of(" \t\n");
    return end == std::string::npos ? "" : text.substr(0, end + 1);
}

} // namespace

// Linux comes up with the driver bound, before anything is selected.
SpiFlash::SpiFlash(Links links) : links(std::move(links)), isBound(true)
{}

std::string SpiFlash::path(const std::string& boardPath) const
{
    return images->root + boardPath;
}

void SpiFlash::load(const DeviceImages& given)
{
    if (isBound)
    {
        unbind();
    }
    images = &given;
    if (!images->root.empty())
    {
        fs::create_directories(path(deviceDir + "/mtd"));
        fs::create_directories(path(driverDir));
    }
    bind();
}

void SpiFlash::reboot()
{
    if (isBound)
    {
        unbind();
    }
    bind();
}

int SpiFlash::driverWrite(const std::string& file, const std::string& text)
{
    bool binding = file == driverDir + "bind";
    if ((!binding && file != driverDir + "unbind") ||
        trimmed(text) != controller)
    {
        return -ENODEV;
    }
    if (binding == isBound)
    {
        return binding ? -EBUSY : -ENODEV;
    }
    binding ? bind() : unbind();
    return 0;
}

void SpiFlash::bind()
{
    isBound = true;
    auto contents = probe();
    if (images == nullptr || images->root.empty())
    {
        return;
    }
    std::error_code ignored;
    fs::create_directory_symlink("../../../../devices/platform/ahb/" +
                                     controller,
                                 path(driverDir + controller), ignored);
    if (!contents)
    {
        return;
    }
    // The next free number, as the kernel hands them out.
    int number = 0;
    while (fs::exists(path("/dev/mtd" + std::to_string(number))))
    {
        ++number;
    }
    mtd = "mtd" + std::to_string(number);
    writeFile(path("/dev/" + mtd), chipContents(*contents));
    std::vector<uint8_t> name(partitionName.begin(), partitionName.end());
    name.push_back('\n');
    writeFile(path(deviceDir + "/mtd/" + mtd + "/name"), name);
}

void SpiFlash::unbind()
{
    isBound = false;
    if (images != nullptr && !images->root.empty())
    {
        std::error_code ignored;
        fs::remove(path(driverDir + controller), ignored);
        if (!mtd.empty())
        {
            fs::remove(path("/dev/" + mtd), ignored);
            fs::remove_all(path(deviceDir + "/mtd/" + mtd), ignored);
        }
    }
    mtd.clear();
    // The comparison ends with the reading.
    if (difference)
    {
        links.fpga.reportMisoDifference(*difference);
        difference.reset();
    }
}

std::optional<std::vector<uint8_t>> SpiFlash::probe()
{
    static const std::vector<uint8_t> blank;
    if (links.gpio.level("SMC_UBB_FPGA_SPI_SEL") != 0)
    {
        int side = links.gpio.level("SMC_UBB_FLASH_AB_SEL") != 0 ? 1 : 0;
        return images != nullptr ? images->ubbFpgaFlash[side] : blank;
    }
    uint8_t routed = links.fpga.ifwiRouting();
    if (routed == 0)
    {
        return std::nullopt;
    }
    // Every routed OAM's flash drives its own MISO line; the SMC reads
    // what most of them say, and the FPGA marks the lines that said
    // otherwise, or nothing at all.
    std::array<const std::vector<uint8_t>*, 8> data{};
    for (int oam = 0; oam < 8; ++oam)
    {
        bool answers = (routed >> oam & 1) && (links.present >> oam & 1) &&
                       links.oamPowered(oam);
        if (answers)
        {
            data[oam] = images != nullptr ? &images->ifwiFlash[oam] : &blank;
        }
    }
    const std::vector<uint8_t>* stream = nullptr;
    int best = 0;
    for (const auto* candidate : data)
    {
        int votes = 0;
        for (const auto* other : data)
        {
            votes += candidate && other && *other == *candidate ? 1 : 0;
        }
        if (votes > best)
        {
            best = votes;
            stream = candidate;
        }
    }
    uint8_t differing = routed;
    for (int oam = 0; oam < 8; ++oam)
    {
        if (stream && data[oam] && *data[oam] == *stream)
        {
            differing &= static_cast<uint8_t>(~(1U << oam));
        }
    }
    difference = differing;
    if (stream == nullptr)
    {
        return std::nullopt;
    }
    return *stream;
}

} // namespace ubbsim
