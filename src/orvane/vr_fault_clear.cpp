#include "orvane/vr_fault_clear.hpp"

#include "detail/board_constants.hpp"
#include "logging/log_line.hpp"
#include "orvane/vr_address.hpp"
#include "utils/i2c_ops.hpp"

#include <string>
#include <vector>

namespace orvane::detail
{

namespace
{

using board::num;
using board::oamChannel;
using logging::level::ERR;
using logging::level::INFO;

// The UBB's regulators share the SMC FPGA's bus.
constexpr int ubbChannel = board::smcChannel;
constexpr uint8_t pageCommand = 0x00;
constexpr uint8_t clearFaultsCommand = 0x03;

bool isHotswap(const VrEntry& vr)
{
    return vr.model == "LM5066I" || vr.model == "XDP710";
}

bool setPageZero(int channel, const VrEntry& vr)
{
    int event = 0;
    if (I2CSmbusWriteByteData(&event, channel, vr.address, pageCommand, 0,
                              true))
    {
        return true;
    }
    ConsoleLog(ERR) << "Fail to set page 0 at slave addr 0x" << std::hex
                    << num(vr.address);
    return false;
}

void clearFaults(int channel, const VrEntry& vr)
{
    int event = 0;
    if (!I2CSmbusWriteByte(&event, channel, vr.address, clearFaultsCommand,
                           true))
    {
        ConsoleLog(ERR) << "Fail to clear faults at slave addr 0x" << std::hex
                        << num(vr.address);
        return;
    }
    ConsoleLog(INFO) << "Cleared faults at slave addr 0x" << std::hex
                     << num(vr.address);
}

// The UBB's hot-swap controllers keep their faults; those of the OAMs
// are cleared, without a page, since they have none.
void clearUbb()
{
    ConsoleLog(INFO) << "Clear faults for UBB VRs";
    std::vector<VrEntry> list;
    if (!GetVrAddressList(false, 0, list))
    {
        ConsoleLog(ERR) << "Failed to get VR address list for UBB";
    }
    for (const VrEntry& vr : list)
    {
        if (isHotswap(vr) || !setPageZero(ubbChannel, vr))
        {
            continue;
        }
        clearFaults(ubbChannel, vr);
    }
}

void clearOam(int oam)
{
    ConsoleLog(INFO) << "Clear faults at OAM" << oam;
    int event = 0;
    if (!I2CSmbusWriteByte(&event, oamChannel, board::oamMuxAddress,
                           static_cast<uint8_t>(1U << oam), false))
    {
        ConsoleLog(ERR) << "Fail to flip OAM " << oam;
        return;
    }
    std::vector<VrEntry> list;
    if (!GetVrAddressList(true, oam, list))
    {
        ConsoleLog(ERR) << "Failed to get VR address list for OAM " << oam;
    }
    for (const VrEntry& vr : list)
    {
        if (!isHotswap(vr) && !setPageZero(oamChannel, vr))
        {
            continue;
        }
        clearFaults(oamChannel, vr);
    }
}

} // namespace

void ClearVrFaults(uint8_t prsnt)
{
    clearUbb();
    for (int oam = 0; oam < 8; ++oam)
    {
        if ((prsnt & (1U << oam)) == 0)
        {
            clearOam(oam);
        }
    }
}

} // namespace orvane::detail
