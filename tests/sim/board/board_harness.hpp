#pragma once

#include "board/board.hpp"
#include "board/board_time.hpp"
#include "board/virtual_board.hpp"
#include "common/vcd_reader.hpp"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ubbsim::test
{

using namespace std::chrono_literals;

// Board time that moves only when a test or a transfer moves it.
class ManualTime
{
  public:
    SimTime now() const
    {
        return SimTime(ns.load());
    }
    void advanceTo(SimTime at)
    {
        int64_t target = at.count();
        int64_t seen = ns.load();
        while (seen < target && !ns.compare_exchange_weak(seen, target))
        {}
    }
    std::unique_ptr<BoardTime> source();

  private:
    std::atomic<int64_t> ns{0};
};

// A fault of a kind in a window; the test fills in the rest.
inline Fault fault(std::string kind, double at = 0,
                   std::optional<double> until = std::nullopt)
{
    Fault made;
    made.kind = std::move(kind);
    made.at = at;
    made.until = until;
    return made;
}

// A board on manual time, reached the way the daemon's backends reach it.
class BoardHarness
{
  public:
    explicit BoardHarness(const Scenario& scenario = Scenario{});

    Board& board()
    {
        return *dut;
    }
    SimTime now() const
    {
        return time.now();
    }
    // Moves board time on and lets the board catch up, as the ticker does.
    void advanceTo(SimTime at);
    void advanceBy(SimTime by)
    {
        advanceTo(now() + by);
    }

    int write(int bus, uint16_t address, std::vector<uint8_t> bytes);
    // One register, pointer write and read under one start: value or -errno.
    int read(int bus, uint16_t address, uint8_t reg);
    int readBlock(int bus, uint16_t address, uint8_t reg, size_t length,
                  std::vector<uint8_t>& out);

    // As the daemon drives a line: request as output, drive, let go.
    int drive(const std::string& line, int value);
    int level(const std::string& line);

    void configureExpander();
    // Standby as the daemon brings it up: rails and the FPGA image.
    void bringUpStandby();
    // And base: expanders, hotswap, host power good for `host`.
    void bringUpBase(uint8_t host);

  private:
    ManualTime time;
    std::unique_ptr<Board> dut;
};

std::string writeAndRead(Board& board);

} // namespace ubbsim::test
