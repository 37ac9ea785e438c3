// A boot of the daemon's spine on an in-process stand-in board: standby,
// one failed and one good base power-on, a running board whose host drops
// the enable, and an eFuse fault that ends the retry loop. Prints the
// daemon's trail and a summary of what the logging library received.

#include "fakes/fake_platform.hpp"
#include "main/boot_driver.hpp"
#include "main/register_checks.hpp"

#include <iostream>

namespace
{

using namespace orvane;
using namespace std::chrono_literals;

constexpr const char* enableLine = "GPU_BASE_PWR_EN";

// The host raises the enable at 5 s and drops it at 40 s of board time.
class HostClock : public platform::Clock
{
  public:
    HostClock(test::FakeClock& inner, test::FakeGpio& gpio) :
        inner(inner), gpio(gpio), start(inner.steadyNow())
    {}

    std::chrono::steady_clock::time_point steadyNow() override
    {
        return inner.steadyNow();
    }
    std::chrono::system_clock::time_point wallNow() override
    {
        return inner.wallNow();
    }
    void sleepFor(std::chrono::nanoseconds duration) override
    {
        inner.sleepFor(duration);
        auto elapsed = inner.steadyNow() - start;
        gpio.setInput(enableLine, elapsed >= 5s && elapsed < 40s ? 1 : 0);
    }

  private:
    test::FakeClock& inner;
    test::FakeGpio& gpio;
    std::chrono::steady_clock::time_point start;
};

class SpineOps : public PlaceholderBootOps
{
  public:
    uint32_t Base_Pwr_on_Sqnc(OrvaneSvcState& state) override
    {
        if (++attempts == 1)
        {
            // The first attempt stops at the hotswap controller.
            state.sequenceEvent = sequence_event::hotswap;
            return 0;
        }
        return PlaceholderBootOps::Base_Pwr_on_Sqnc(state);
    }

    uint32_t CheckRmEfuseFault(OrvaneSvcState&) override
    {
        return ++efuseChecks < 2 ? 1 : 0;
    }

  private:
    int attempts = 0;
    int efuseChecks = 0;
};

void fitBoard(test::FakePlatform& board)
{
    board.i2c.addDevice(boot_reg::fpgaBus, boot_reg::fpgaAddress);
    board.i2c.addDevice(boot_reg::expanderBus, boot_reg::expanderAddress);
    board.i2c.setRegister(3, 0x56, boot_reg::ctf, 0xFF);
    board.i2c.setRegister(3, 0x56, boot_reg::moduleGood, 0xFF);
    board.i2c.setRegister(3, 0x56, boot_reg::oamPresent, 0x00);
    board.i2c.setRegister(14, 0x27, boot_reg::hotswapGood, 0x0F);
    board.gpio.addLine(enableLine, 0);
}

void printSummary(test::FakePlatform& board, const OrvaneSvcState& state)
{
    std::cout << "\n== summary\n";
    std::cout << "standby power: " << (state.standbyPowerStatus ? "On" : "Off")
              << ", base power: " << (state.basePowerStatus ? "On" : "Off")
              << ", sequenceEvent " << state.getSequenceEvent() << "\n";
    auto events = board.zellib.calls(test::ZellibCall::Kind::log);
    std::cout << "events raised: " << events.size() << "\n";
    for (const auto& event : events)
    {
        std::cout << "  " << event.level << " " << event.messageId
                  << (event.arg1.empty() ? "" : " [" + event.arg1 + "]")
                  << "\n";
    }
    std::cout << "board time: "
              << std::chrono::duration_cast<std::chrono::milliseconds>(
                     board.clock.slept())
                     .count()
              << " ms of sleeps\n";
}

} // namespace

int main()
{
    test::FakePlatform board;
    fitBoard(board);
    HostClock clock(board.clock, board.gpio);
    platform::Platform seams = platform::current();
    seams.clock = &clock;
    platform::install(seams);

    SpineOps ops;
    OrvaneSvcState state;
    sem_t semaphore;
    sem_init(&semaphore, 0, 1);
    RunBoot(ops, state, &semaphore);
    printSummary(board, state);
    return 0;
}
