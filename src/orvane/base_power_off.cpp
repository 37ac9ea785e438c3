#include "orvane/base_power_off.hpp"

#include "detail/board_constants.hpp"
#include "logging/events.hpp"
#include "logging/log_line.hpp"
#include "orvane/base_power_on.hpp"
#include "orvane/power_service.hpp"
#include "orvane/rail_engine.hpp"
#include "orvane/update_bits.hpp"
#include "utils/gpio_lines.hpp"
#include "utils/i2c_ops.hpp"
#include "utils/platform/platform.hpp"

#include <filesystem>
#include <fstream>
#include <string>

namespace orvane
{

namespace
{

using namespace board;
using logging::level::CRITICAL;
using logging::level::ERR;
using logging::level::INFO;
using logging::level::WARNING;

constexpr uint8_t serverRunningBit = 0x01; // active low: 0 is in reset

constexpr uint32_t tailOnly = 15;

constexpr const char* bundleMarker = "/var/lib/orvane/force_bundleupdate";
constexpr const char* dumpCommand = "/usr/bin/VR_fault_dump-v0.9.1.sh 2>&1";
constexpr const char* dumpFile = "/run/initramfs/log_nv/vr_fault_decode.out";
// The pieces of the dump script's output, as a line reader of this buffer
// size hands them out.
constexpr size_t dumpPiece = 128;

void removeQuietly(const char* board)
{
    std::error_code error;
    const auto file = platform::path(board);
    if (std::filesystem::exists(file, error))
    {
        std::filesystem::remove(file, error);
    }
}

// Publishes a change of the server reset line (bit 0, active low).
void followServerReset(OrvaneSvcState& state)
{
    uint8_t reset = 0;
    if (!detail::ReadRegister(fpgaChannel, fpgaAddress, 0x70, reset))
    {
        return;
    }
    const bool running = (reset & serverRunningBit) != 0;
    if (!running && !state.serverResetStatus)
    {
        ConsoleLog(INFO) << "Server reset detected";
        state.serverResetStatus = true;
        set_property("ServerResetStatus", 1);
    }
    else if (running && state.serverResetStatus)
    {
        state.serverResetStatus = false;
        set_property("ServerResetStatus", 0);
    }
}

// Holds while the board runs. Returns the event to tear down from: 19 when
// the rack manager asked, the fault's event when the monitor did.
uint32_t hold(OrvaneSvcState& state)
{
    NvEvent(INFO, "PowerDownReady", "", "", "")
        << "Power Sequence: System ready for power-down after finished the "
           "base power.";
    removeQuietly(bundleMarker);
    bool firstPass = true;
    while (!state.baseDownRequest)
    {
        int enable = 0;
        uint8_t status = 0;
        if (!GetGPIOValue("GPU_BASE_PWR_EN", enable))
        {
            NvEvent(WARNING, unexpected, "", "", "")
                << "Power Sequence: [Base power-off] Fail to get the value "
                   "from GPIO - GPU_BASE_PWR_EN.";
            platform::sleepMilliseconds(2000);
            continue;
        }
        if (!detail::ReadRegister(smcChannel, smcAddress, plugStatusRegister,
                                  status))
        {
            ConsoleLog(ERR) << "Fail to read Slave address 0x25 Addr 0x04\n";
            platform::sleepMilliseconds(2000);
            continue;
        }
        if ((status & unpluggedBit) != 0 || enable == 0)
        {
            state.baseTransition = true;
            ConsoleLog(INFO) << "UBB Unplugged from HGX host\n";
            NvEvent(INFO, "PowerDownRequest", "", "", "")
                << "Power Sequence: Base Power down request from rack "
                   "manager.";
            return sequence_event::basePowerOn;
        }
        if (firstPass)
        {
            ConsoleLog(INFO) << "UBB Plugged in HGX host\n";
            ConsoleLog(INFO) << "UBB will not power off GPUs\n";
        }
        followServerReset(state);
        platform::sleepMilliseconds(100);
        firstPass = false;
    }
    NvEvent(INFO, "PowerDownRequest", "", "", "")
        << "Power Sequence: Base Power down request from power monitor.";
    return state.sequenceEvent;
}

void announcePowerDown(OrvaneSvcState& state)
{
    ConsoleLog(INFO) << "Base Power Enable De-asserted";
    state.basePowerStatus = false;
    set_property("BasePowerStatus", 0);
    platform::zellib().setBootTimeFinish(false);
    state.serverResetStatus = true;
    set_property("ServerResetStatus", 1);
    logging::LogPowerTransition(false, false);
    // The monitor sees basePowerStatus clear and stops its reads before the
    // hardware goes away.
    ConsoleLog(INFO)
        << "Delay 3 seconds to wait the other polling thread ready to stop";
    platform::sleepMilliseconds(3000);
}

uint8_t readPrsnt()
{
    uint8_t prsnt = 0;
    detail::ReadRegister(fpgaChannel, fpgaAddress, prsntRegister, prsnt);
    return prsnt;
}

// Hands out a command's output as a line reader with a buffer of
// dumpPiece bytes does: up to and including a line feed, at most one byte
// short of the buffer.
class PieceReader
{
  public:
    explicit PieceReader(platform::ShellPipe& pipe) : pipe(pipe)
    {}

    bool next(std::string& piece)
    {
        constexpr size_t limit = dumpPiece - 1;
        while (true)
        {
            const size_t end = pending.find('\n');
            if (end != std::string::npos && end < limit)
            {
                return take(end + 1, piece);
            }
            if (pending.size() >= limit)
            {
                return take(limit, piece);
            }
            if (finished)
            {
                return !pending.empty() && take(pending.size(), piece);
            }
            char buffer[dumpPiece];
            const size_t got = pipe.read(buffer, sizeof(buffer));
            finished = got == 0;
            pending.append(buffer, got);
        }
    }

  private:
    bool take(size_t length, std::string& piece)
    {
        piece = pending.substr(0, length);
        pending.erase(0, length);
        return true;
    }

    platform::ShellPipe& pipe;
    std::string pending;
    bool finished = false;
};

// Copies the regulators' fault decode to the non-volatile log.
void dumpVrFaults()
{
    auto pipe = platform::shell().popen(dumpCommand);
    if (!pipe)
    {
        ConsoleLog(ERR) << "Failed to run script.";
    }
    std::ofstream out(platform::path(dumpFile));
    if (!out)
    {
        ConsoleLog(ERR) << "Failed to open output file.";
    }
    if (pipe && out)
    {
        PieceReader reader(*pipe);
        std::string piece;
        while (reader.next(piece))
        {
            ConsoleLog(INFO) << piece;
            out << piece;
        }
    }
    out.close();
    if (pipe)
    {
        pipe->close();
    }
}

bool hostPowerGoodStage(OrvaneSvcState& state, uint8_t prsnt)
{
    int error = 0;
    uint8_t readback = 0;
    uint8_t written = 0;
    if (!UpdateBitsRetry(state, error, tries, fpgaChannel, fpgaAddress,
                         hostGoodRegister, prsnt, written, readback, false,
                         true, true,
                         "Power Sequence Base Power Off: disable Host Power "
                         "good"))
    {
        NvEvent(WARNING, unexpected, "", "", "")
            << "Power Sequence: [Base power-off] Fail to disable OAM Host "
               "power good.";
        return false;
    }
    ConsoleLog(INFO) << "Register 0x60 value is 0x" << std::hex
                     << num(readback);
    ConsoleLog(INFO) << "Host Powergood is disabled";
    platform::sleepMilliseconds(1000);
    uint8_t value = 0;
    if (!WaitPowerGood(state, error, fpgaChannel, fpgaAddress,
                       moduleGoodRegister, static_cast<uint8_t>(~prsnt), false,
                       value))
    {
        NvEvent(WARNING, unexpected, "", "", "")
            << "Power Sequence: [Base power-off] Module power good error.";
        if (error != 0)
        {
            logging::AddI2CEvent(
                error, CRITICAL,
                "Power Sequence Base Power Off: Module Power good error.", true,
                fpgaChannel, fpgaAddress, moduleGoodRegister, 0, nullptr, 1,
                &value);
        }
        return false;
    }
    ConsoleLog(INFO) << "Module Power good De-asserted";
    return true;
}

bool hotswapStage(OrvaneSvcState& state)
{
    int error = 0;
    uint8_t readback = 0;
    uint8_t written = 0;
    if (!UpdateBitsRetry(state, error, tries, smcChannel, smcAddress, 0x09,
                         0xFE, written, readback, false, false, true,
                         "Power Sequence Base Power Off: disable Hotswap "
                         "controller"))
    {
        NvEvent(WARNING, unexpected, "", "", "")
            << "Power Sequence: [Base power-off] Fail to disable Hotswap "
               "controller.";
        return false;
    }
    ConsoleLog(INFO) << "Hotswap controller disabled";
    platform::sleepMilliseconds(1000);
    // These texts have always said power-on; journal queries match them.
    if (!detail::WriteRetimerResets(
            0x00,
            "Power Sequence: [Base power-on] De-assert reset to retimer 0x9",
            "Power Sequence: [Base power-on] Fail to deassert reset to "
            "retimer 0x"))
    {
        return false;
    }
    ConsoleLog(INFO) << "Reset to Retimer de-asserted";
    return true;
}

bool powerGoodStage(OrvaneSvcState& state)
{
    if (!SetGPIOOutput("GPU_BASE_PWR_GD", 0))
    {
        NvEvent(WARNING, unexpected, "", "", "")
            << "Power Sequence: [Base power-off] Fail to set GPIO - "
               "GPU_BASE_PWR_GD output to low.";
        return false;
    }
    ConsoleLog(INFO) << "Base power good de-asserted";
    int error = 0;
    uint8_t written = 0;
    uint8_t readback = 0;
    if (!UpdateBits(state, error, fpgaChannel, fpgaAddress, 0x99, 0xFE, written,
                    readback, false, true))
    {
        NvEvent(WARNING, unexpected, "", "", "")
            << "Power Sequence: [Base power-off] Fail to set UBB FPGA "
               "register 0x99.";
        if (error != 0)
        {
            logging::AddI2CEvent(error, CRITICAL,
                                 "Power Sequence Base Power Off: Fail to set "
                                 "UBB FPGA register 0x99.",
                                 true, fpgaChannel, fpgaAddress, 0x99, 0,
                                 nullptr, 1, &readback);
        }
        return false;
    }
    ConsoleLog(INFO) << "Set UBB FPGA reg 0x99 to value 0x" << std::hex
                     << num(readback);
    return true;
}

uint32_t tail(OrvaneSvcState& state, uint32_t result)
{
    state.basePowerStatus = false;
    set_property("BasePowerStatus", 0);
    platform::zellib().setBootTimeFinish(false);
    NvEvent(INFO, poweredOff, "Base Power", "", "") << "Base powered off.";
    return result;
}

// The stages from `entry` down; a failed stage ends the teardown.
uint32_t teardown(OrvaneSvcState& state, uint32_t entry, uint8_t prsnt)
{
    if (entry == sequence_event::module)
    {
        dumpVrFaults();
    }
    if (entry >= sequence_event::module && !hostPowerGoodStage(state, prsnt))
    {
        return 0;
    }
    if (entry >= sequence_event::hotswap && !hotswapStage(state))
    {
        return 0;
    }
    if (!powerGoodStage(state))
    {
        return 0;
    }
    return tail(state, 1);
}

} // namespace

uint32_t Base_Pwr_off_Sqnc(OrvaneSvcState& state)
{
    const uint32_t event = state.sequenceEvent;
    if (event == sequence_event::basePowerOn)
    {
        const uint32_t entry = hold(state);
        announcePowerDown(state);
        const uint8_t prsnt = readPrsnt();
        // Whatever the monitor saw, everything that was reached comes down.
        return teardown(state,
                        entry == sequence_event::module
                            ? sequence_event::module
                            : sequence_event::basePowerOn,
                        prsnt);
    }
    if (event == tailOnly)
    {
        return tail(state, 0);
    }
    if (event < sequence_event::beforeHotswap || event > sequence_event::module)
    {
        ConsoleLog(ERR) << "Non-existed event";
        return tail(state, 0);
    }
    logging::LogPowerTransition(false, false);
    const uint8_t prsnt =
        event == sequence_event::module ? readPrsnt() : uint8_t{0};
    return teardown(state, event, prsnt);
}

} // namespace orvane
