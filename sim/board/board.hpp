#pragma once

#include "board/device_images.hpp"
#include "common/sim_clock.hpp"
#include "common/wire.hpp"
#include "scenario/scenario.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ubbsim
{

// Counts for the run's summary and for measurements.
struct BoardStats
{
    uint64_t i2cTransfers = 0;
    uint64_t i2cFailures = 0;
    uint64_t gpioRequests = 0;
    uint64_t gpioBusy = 0;
};

// The virtual UBB as the daemon's backends see it. Every call is safe from
// any thread. Errors come back as negative errno values, as the kernel
// gives them.
class Board
{
  public:
    virtual ~Board() = default;

    // i2c-dev: whether /dev/i2c-N exists.
    virtual int openBus(int bus) = 0;
    // One I2C_RDWR-like transfer: the segments in order under one start,
    // reads filled in. 0 on success, -ENXIO/-EREMOTEIO when a device
    // doesn't answer. Takes the bus time of the bytes moved (400 kHz).
    virtual int transfer(int bus, std::vector<I2cSegment>& segments,
                         bool pec) = 0;

    // GPIO lines by name. `owner` names the connection that holds a
    // request, so that a daemon that dies gives its lines back.
    virtual bool lineExists(const std::string& name) = 0;
    virtual int requestLine(uint64_t owner, const std::string& name,
                            const std::string& consumer, bool output, int flags,
                            int defaultValue, uint32_t& handle) = 0;
    virtual int getLine(uint32_t handle) = 0;
    virtual int setLine(uint32_t handle, int value) = 0;
    virtual int releaseLine(uint32_t handle) = 0;
    virtual void releaseOwner(uint64_t owner) = 0;

    // The SoC reset reason register (0x1E6E2000 + 0x64).
    virtual uint32_t resetReason() = 0;
    // The SMC was reset; the board keeps whatever power it has.
    virtual void smcReset() = 0;
    // The retimer behind a switch position holds the image in the file at
    // the board path: 0 when so, 1 when it holds another, -errno when the
    // position or the file is wrong.
    virtual int retimerEnsure(int switchValue, const std::string& path) = 0;
    // What the flashes and retimers hold, and where the SMC's files are.
    virtual void loadImages(DeviceImages images) = 0;
    // `text` written to a sysfs driver file, e.g. ".../aspeed-smc/bind":
    // 0, or -errno as the kernel refuses it.
    virtual int driverWrite(const std::string& file,
                            const std::string& text) = 0;

    // A programming tool of the SMC (its board path) ended with exit status
    // 0: the devices it writes now hold the file it was given. 0, or
    // -errno when the tool or its arguments make no sense.
    virtual int toolRun(const std::string& tool,
                        const std::vector<std::string>& arguments) = 0;
    // The image that the RM tool last wrote to an OAM's RM; none before.
    virtual std::optional<std::vector<uint8_t>> rmImage(int oam) = 0;

    // Applies what happened up to now: scenario actions, power good edges.
    virtual void advance() = 0;

    virtual BoardStats stats() = 0;
    // The waveform of every line, enable and power good since the start.
    virtual void writeWaveform(const std::string& path) = 0;
    // Power states reached, one line each, for the run's summary.
    virtual std::vector<std::string> summary() = 0;
};

std::unique_ptr<Board> makeBoard(const Scenario& scenario,
                                 const SimClock& clock);

} // namespace ubbsim
