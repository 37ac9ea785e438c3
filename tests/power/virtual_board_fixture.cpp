#include "virtual_board_fixture.hpp"

#include "board/board_time.hpp"
#include "board/virtual_board.hpp"

namespace orvane::test
{

namespace
{

// Board time read from the fake clock; waiting for the bus moves it.
class FakeBoardTime : public ubbsim::BoardTime
{
  public:
    FakeBoardTime(FakeClock& clock,
                  std::chrono::steady_clock::time_point zero) :
        clock(clock),
        zero(zero)
    {}

    ubbsim::SimTime now() const override
    {
        return std::chrono::duration_cast<ubbsim::SimTime>(clock.steadyNow() -
                                                           zero);
    }

    void sleepUntil(ubbsim::SimTime at) const override
    {
        auto left = at - now();
        if (left.count() > 0)
        {
            clock.advance(left);
        }
    }

  private:
    FakeClock& clock;
    std::chrono::steady_clock::time_point zero;
};

} // namespace

ubbsim::Scenario VirtualBoardFixture::healthyBoard()
{
    ubbsim::Scenario scenario;
    scenario.name = "unit";
    for (auto& slot : scenario.oams)
    {
        slot.present = true;
        slot.fru.productName = "OAM KV35 AC B";
    }
    scenario.ubbFru.productName = "UBB KV35 BASEBOARD";
    scenario.end = 1e6;
    return scenario;
}

VirtualBoardFixture::VirtualBoardFixture(const ubbsim::Scenario& scenario) :
    start(fake.clock.steadyNow())
{
    board = ubbsim::makeBoard(
        scenario, std::make_unique<FakeBoardTime>(fake.clock, start));
    port = std::make_unique<ubbsim::DirectPort>(*board);
    i2c = std::make_unique<ubbsim::VirtualI2c>(*port);
    gpio = std::make_unique<ubbsim::VirtualGpio>(*port);
    devMem = std::make_unique<ubbsim::VirtualDevMem>(*port);
    platform::Platform seams = platform::current();
    seams.i2c = i2c.get();
    seams.gpio = gpio.get();
    seams.devMem = devMem.get();
    previous = platform::install(seams);
}

VirtualBoardFixture::~VirtualBoardFixture()
{
    platform::install(previous);
}

double VirtualBoardFixture::seconds()
{
    return std::chrono::duration<double>(fake.clock.steadyNow() - start)
        .count();
}

} // namespace orvane::test
