#include "board_harness.hpp"

#include <unistd.h>

#include <fstream>
#include <sstream>

namespace ubbsim::test
{

namespace
{

class ManualSource final : public BoardTime
{
  public:
    explicit ManualSource(ManualTime& time) : time(time)
    {}
    SimTime now() const override
    {
        return time.now();
    }
    // A sleeping transfer is what moves manual time on.
    void sleepUntil(SimTime at) const override
    {
        time.advanceTo(at);
    }

  private:
    ManualTime& time;
};

} // namespace

std::unique_ptr<BoardTime> ManualTime::source()
{
    return std::make_unique<ManualSource>(*this);
}

BoardHarness::BoardHarness(const Scenario& scenario) :
    dut(makeBoard(scenario, time.source()))
{}

void BoardHarness::advanceTo(SimTime at)
{
    time.advanceTo(at);
    dut->advance();
}

int BoardHarness::write(int bus, uint16_t address, std::vector<uint8_t> bytes)
{
    std::vector<I2cSegment> segments{{address, false, 0, std::move(bytes)}};
    return dut->transfer(bus, segments, false);
}

int BoardHarness::readBlock(int bus, uint16_t address, uint8_t reg,
                            size_t length, std::vector<uint8_t>& out)
{
    std::vector<I2cSegment> segments{
        {address, false, 0, {reg}},
        {address, true, static_cast<uint16_t>(length), {}}};
    int result = dut->transfer(bus, segments, false);
    out = segments[1].data;
    return result;
}

int BoardHarness::read(int bus, uint16_t address, uint8_t reg)
{
    std::vector<uint8_t> out;
    int result = readBlock(bus, address, reg, 1, out);
    return result < 0 ? result : out.at(0);
}

int BoardHarness::drive(const std::string& line, int value)
{
    uint32_t handle = 0;
    int result = dut->requestLine(1, line, "test", true, 0, value, handle);
    if (result == 0)
    {
        dut->releaseLine(handle);
    }
    return result;
}

int BoardHarness::level(const std::string& line)
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

void BoardHarness::configureExpander()
{
    // The direction registers as the daemon's start-up leaves them, so that
    // the banks drive their pins.
    constexpr std::pair<uint8_t, uint8_t> directions[] = {
        {0x18, 0x00}, {0x19, 0xF0}, {0x1A, 0x01}, {0x1B, 0xCF}};
    for (auto [reg, value] : directions)
    {
        write(4, 0x25, {reg, value});
    }
}

void BoardHarness::bringUpStandby()
{
    configureExpander();
    write(4, 0x25, {0x08, 0x1F});
    advanceBy(20ms);
    drive("SMC_UBB_FPGA_SPI_SEL", 0);
    drive("UBB_FPGA_PROG_B", 0);
    advanceBy(1s);
    drive("UBB_FPGA_PROG_B", 1);
    advanceBy(1600ms);
    write(4, 0x25, {0x0A, 0xFC});
    write(4, 0x25, {0x0B, 0x30});
    write(4, 0x25, {0x09, 0x06});
    advanceBy(50ms);
    write(3, 0x56, {0x10, 0x02});
}

void BoardHarness::bringUpBase(uint8_t host)
{
    write(4, 0x25, {0x0A, 0xFE});
    write(4, 0x25, {0x09, 0x07});
    advanceBy(1s);
    write(3, 0x56, {0x60, host});
    advanceBy(1s);
}

std::string writeAndRead(Board& board)
{
    char path[] = "/tmp/board-vcd-XXXXXX";
    int fd = mkstemp(path);
    if (fd >= 0)
    {
        close(fd);
    }
    board.writeWaveform(path);
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    unlink(path);
    return text.str();
}

} // namespace ubbsim::test
