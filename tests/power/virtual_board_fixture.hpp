#pragma once

#include "board/board.hpp"
#include "fakes/fake_platform.hpp"
#include "scenario/scenario.hpp"
#include "server/direct_port.hpp"
#include "virtual/virtual_gpio.hpp"
#include "virtual/virtual_i2c.hpp"
#include "virtual/virtual_machine.hpp"

#include <memory>

namespace orvane::test
{

// The virtual board in the test's own process, on the fake clock: the
// daemon's sleeps and the board's bus time move one board time, instantly.
// I2C, GPIO and the reset reason go to the board model; the other seams
// stay the fakes of FakePlatform (temporary root, recorded shell commands,
// recorded events).
class VirtualBoardFixture
{
  public:
    explicit VirtualBoardFixture(
        const ubbsim::Scenario& scenario = healthyBoard());
    ~VirtualBoardFixture();
    VirtualBoardFixture(const VirtualBoardFixture&) = delete;
    VirtualBoardFixture& operator=(const VirtualBoardFixture&) = delete;

    // Eight OAMs of one product, cold start, no host action.
    static ubbsim::Scenario healthyBoard();

    // Board time since the fixture was made.
    double seconds();

    FakePlatform fake;
    std::unique_ptr<ubbsim::Board> board;

  private:
    std::unique_ptr<ubbsim::DirectPort> port;
    std::unique_ptr<ubbsim::VirtualI2c> i2c;
    std::unique_ptr<ubbsim::VirtualGpio> gpio;
    std::unique_ptr<ubbsim::VirtualDevMem> devMem;
    platform::Platform previous;
    std::chrono::steady_clock::time_point start;
};

} // namespace orvane::test
