#pragma once

#include "board/board.hpp"
#include "board/board_time.hpp"
#include "board/virtual_board.hpp"
#include "common/vcd_reader.hpp"

#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace ubbsim::test
{

using namespace std::chrono_literals;

constexpr int fpgaBus = 3;
constexpr uint16_t fpga = 0x56;
constexpr int expanderBus = 4;
constexpr uint16_t expander = 0x25;

// A fault of a kind in a window; the test fills in the rest.
inline Fault fault(std::string kind, double at, double until)
{
    Fault made;
    made.kind = std::move(kind);
    made.at = at;
    made.until = until;
    return made;
}

// Board time that moves only when a test or a sleeping transfer moves it.
class ManualTime final : public BoardTime
{
  public:
    SimTime now() const override
    {
        return SimTime(ns.load());
    }
    void sleepUntil(SimTime at) const override
    {
        int64_t seen = ns.load();
        while (seen < at.count() && !ns.compare_exchange_weak(seen, at.count()))
        {}
    }

  private:
    mutable std::atomic<int64_t> ns{0};
};

// A board on manual time, reached the way the daemon's backends reach it.
class BoardHarness
{
  public:
    explicit BoardHarness(const Scenario& scenario = Scenario{})
    {
        auto source = std::make_unique<ManualTime>();
        time = source.get();
        dut = makeBoard(scenario, std::move(source));
    }

    Board& board()
    {
        return *dut;
    }
    SimTime now() const
    {
        return time->now();
    }
    // Moves board time on and lets the board catch up, as the ticker does.
    void advanceTo(SimTime at)
    {
        time->sleepUntil(at);
        dut->advance();
    }
    void advanceBy(SimTime by)
    {
        advanceTo(now() + by);
    }

    int write(int bus, uint16_t address, std::vector<uint8_t> bytes)
    {
        std::vector<I2cSegment> segments{{address, false, 0, std::move(bytes)}};
        return dut->transfer(bus, segments, false);
    }
    // Pointer write and read under one start: the byte or -errno.
    int read(int bus, uint16_t address, uint8_t reg)
    {
        std::vector<I2cSegment> segments{{address, false, 0, {reg}},
                                         {address, true, 1, {}}};
        int result = dut->transfer(bus, segments, false);
        return result < 0 ? result : segments[1].data.at(0);
    }

    // As the daemon drives a line: request as output, drive, let go.
    int drive(const std::string& line, int value)
    {
        uint32_t handle = 0;
        int result = dut->requestLine(1, line, "test", true, 0, value, handle);
        if (result == 0)
        {
            dut->releaseLine(handle);
        }
        return result;
    }
    int level(const std::string& line)
    {
        uint32_t handle = 0;
        int result = dut->requestLine(1, line, "test", false, 0, 0, handle);
        if (result < 0)
        {
            return result;
        }
        result = dut->getLine(handle);
        dut->releaseLine(handle);
        return result;
    }

    void configureExpander()
    {
        // The direction registers as the daemon's start-up leaves them, so that
        // the banks drive their pins.
        for (auto [reg, value] : {std::pair<uint8_t, uint8_t>{0x18, 0x00},
                                  {0x19, 0xF0},
                                  {0x1A, 0x01},
                                  {0x1B, 0xCF}})
        {
            write(expanderBus, expander, {reg, value});
        }
    }
    // Standby as the daemon brings it up: rails and the FPGA image.
    void bringUpStandby()
    {
        configureExpander();
        write(expanderBus, expander, {0x08, 0x1F});
        advanceBy(20ms);
        drive("SMC_UBB_FPGA_SPI_SEL", 0);
        drive("UBB_FPGA_PROG_B", 0);
        advanceBy(1s);
        drive("UBB_FPGA_PROG_B", 1);
        advanceBy(1600ms);
        write(expanderBus, expander, {0x0A, 0xFC});
        write(expanderBus, expander, {0x0B, 0x30});
        write(expanderBus, expander, {0x09, 0x06});
        advanceBy(50ms);
        write(fpgaBus, fpga, {0x10, 0x02});
    }
    Vcd waveform()
    {
        std::string path = "/tmp/board-vcd-" + std::to_string(getpid());
        dut->writeWaveform(path);
        std::stringstream text;
        text << std::ifstream(path).rdbuf();
        unlink(path.c_str());
        return Vcd::parse(text.str());
    }

  private:
    ManualTime* time;
    std::unique_ptr<Board> dut;
};

} // namespace ubbsim::test
