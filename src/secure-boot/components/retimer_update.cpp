#include "secure-boot/retimer_update.hpp"

#include "logging/log_line.hpp"
#include "secure-boot/components/component_images.hpp"
#include "secure-boot/image_paths.hpp"
#include "secure-boot/image_strategy.hpp"
#include "secure-boot/secure_boot_board.hpp"
#include "utils/hex_text.hpp"
#include "utils/platform/platform.hpp"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <vector>

namespace orvane
{

namespace
{

using logging::level::CRITICAL;
using logging::level::ERR;
using logging::level::INFO;
namespace board = secure_boot_board;
namespace fs = std::filesystem;

constexpr size_t retimerCommandRoom = 256;

bool Exists(const std::string& boardPath)
{
    std::error_code error;
    return fs::exists(platform::path(boardPath), error);
}

// The single-image file, where the other side has one, is the best
// backup that the inactive side can get for an image it never held.
void SeedInactive(uint8_t inactive, const std::string& name)
{
    for (const char* extension : {".bin", ".ahdr"})
    {
        const std::string from =
            SidePath(imageRoot, inactive, std::string("retimer") + extension);
        if (Exists(from))
        {
            std::error_code error;
            fs::copy_file(
                platform::path(from),
                platform::path(SidePath(imageRoot, inactive, name + extension)),
                fs::copy_options::overwrite_existing, error);
        }
    }
}

// The first archive whose path names the component; empty when none.
std::string FindArchive(const std::string& idText)
{
    std::vector<std::string> entries;
    std::error_code error;
    const std::string dir(board::retimerArchiveDir);
    for (const auto& entry : fs::directory_iterator(platform::path(dir), error))
    {
        entries.push_back(dir + entry.path().filename().string());
    }
    std::sort(entries.begin(), entries.end());
    for (const std::string& entry : entries)
    {
        if (entry.find(idText) != std::string::npos)
        {
            return entry;
        }
    }
    return "";
}

// The files below the working directory, as board paths, in name order.
std::vector<std::string> ExtractedFiles(const std::string& workDir)
{
    std::vector<std::string> files;
    std::error_code error;
    const fs::path base = platform::path(workDir);
    for (const auto& entry : fs::recursive_directory_iterator(base, error))
    {
        if (entry.is_regular_file())
        {
            files.push_back(workDir + "/" +
                            fs::relative(entry.path(), base).string());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

// The script's mux argument, "0x" and two upper-case digits.
std::string MuxText(uint8_t mux)
{
    char text[8];
    std::snprintf(text, sizeof(text), "0x%02X", mux);
    return text;
}

} // namespace

uint8_t RetimerMux(FwType id)
{
    switch (id)
    {
        case FwType::Retimer_1:
            return board::retimer1Mux;
        case FwType::Retimer_2:
            return board::retimer2Mux;
        default:
            return board::retimerMuxAll;
    }
}

void programRetimer(SecureBootService&, ImageProcessStrategy& strategy,
                    uint32_t side, uint8_t mux)
{
    const std::string version =
        VersionText(strategy.activeAhdr.currentSWVersion);
    const std::string& path = ImageOfSide(strategy, side);
    ConsoleLog(INFO) << "Programming Retimer with image file: " << path
                     << " and image version: " << version << " mux_setting : 0x"
                     << HexText(mux, 2);
    const int status = RunTool(std::string(board::retimerTool) + " " + path +
                                   " " + version + " " + MuxText(mux),
                               retimerCommandRoom);
    if (status == 0)
    {
        NvEvent(INFO, "Update.1.0.1.UpdateSuccessful", "Retimer Secure", ",",
                path)
            << "Retimer update completed successfully.";
    }
    else
    {
        ConsoleLog(CRITICAL)
            << "Retimer update script failed with return code: " << status;
    }
}

bool extractRetimerImage(const std::string& name, uint8_t activeSide, FwType id)
{
    const std::string activeBin =
        SidePath(imageRoot, activeSide, name + ".bin");
    const std::string activeAhdr =
        SidePath(imageRoot, activeSide, name + ".ahdr");
    SeedInactive(OtherSide(activeSide), name);

    const std::string idText = "0x" + HexText(static_cast<unsigned>(id));
    const std::string archive = FindArchive(idText);
    const std::string workDir =
        std::string(board::retimerArchiveDir) + "extract-" + name;
    std::error_code error;
    fs::remove_all(platform::path(workDir), error);
    if (archive.empty() ||
        platform::shell().system("mkdir -p " + workDir + " && tar xf " +
                                 archive + " -C " + workDir) != 0)
    {
        ConsoleLog(ERR) << "Failed to extract tar file : " << archive << "\n";
        return false;
    }

    ConsoleLog(INFO) << "Initiating copy of retimer image for Component ID: "
                     << idText;
    for (const std::string& file : ExtractedFiles(workDir))
    {
        ConsoleLog(INFO) << "Identified file: " << file;
        const std::string extension = fs::path(file).extension().string();
        if (extension != ".ahdr" && extension != ".ihx")
        {
            continue;
        }
        const std::string& target =
            extension == ".ahdr" ? activeAhdr : activeBin;
        if (platform::shell().system("cp " + file + " " + target) != 0)
        {
            ConsoleLog(ERR) << "Failed to copy " << extension << " file. \n";
            return false;
        }
        ConsoleLog(INFO) << "Copied " << file << " to " << target << "\n";
    }
    ConsoleLog(INFO) << "Manual extraction and copying of Retimer image "
                        "succeeded for ComponentID: "
                     << idText;
    return true;
}

} // namespace orvane
