#include "power_board.hpp"

#include "board/board_time.hpp"
#include "board/virtual_board.hpp"
#include "orvane/hotswap_setup.hpp"
#include "orvane/power_service.hpp"
#include "orvane/product_scan.hpp"
#include "orvane/standby_power.hpp"
#include "orvane/standby_stage2.hpp"
#include "orvane/vr_address.hpp"
#include "utils/gpio_lines.hpp"
#include "utils/i2c_ops.hpp"

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

class RecordedLine : public platform::GpioLine
{
  public:
    RecordedLine(std::unique_ptr<platform::GpioLine> inner, std::string name,
                 std::vector<LineWrite>& log) :
        inner(std::move(inner)),
        name(std::move(name)), log(log)
    {}

    void request(const std::string& consumer, platform::GpioDirection direction,
                 int flags, int defaultValue) override
    {
        inner->request(consumer, direction, flags, defaultValue);
    }
    int getValue() override
    {
        return inner->getValue();
    }
    void setValue(int value) override
    {
        inner->setValue(value);
        log.push_back({name, value, platform::clock().steadyNow()});
    }
    void release() override
    {
        inner->release();
    }

  private:
    std::unique_ptr<platform::GpioLine> inner;
    std::string name;
    std::vector<LineWrite>& log;
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

ubbsim::Scenario warmBoard(bool baseOn)
{
    ubbsim::Scenario scenario = VirtualBoardFixture::healthyBoard();
    scenario.start = ubbsim::ResetKind::warm;
    scenario.baseWasOn = baseOn;
    return scenario;
}

ubbsim::Fault faultOf(const std::string& kind)
{
    ubbsim::Fault fault;
    fault.kind = kind;
    return fault;
}

ubbsim::Fault silent(int bus, int address)
{
    ubbsim::Fault fault = faultOf("nack");
    fault.bus = bus;
    fault.address = address;
    return fault;
}

ubbsim::Scenario withFault(const std::string& kind, ubbsim::Scenario scenario)
{
    scenario.faults.push_back(faultOf(kind));
    return scenario;
}

void hostAt(ubbsim::Scenario& scenario, double seconds,
            ubbsim::HostAction::Kind kind)
{
    ubbsim::HostAction action;
    action.at = seconds;
    action.kind = kind;
    scenario.host.push_back(action);
}

std::vector<ZellibCall> eventsWithId(const RecordingZellib& zellib,
                                     const std::string& messageId)
{
    auto calls = zellib.calls(ZellibCall::Kind::nvLog);
    std::erase_if(calls, [&messageId](const ZellibCall& call) {
        return call.messageId != messageId;
    });
    return calls;
}

void clearProducts()
{
    for (auto& product : productTable)
    {
        product = productUnknown;
    }
}

UbbProduct::UbbProduct(int product)
{
    productTable[ubbProductIndex] = product;
}

UbbProduct::~UbbProduct()
{
    productTable[ubbProductIndex] = productUnknown;
}

GpioRecorder::GpioRecorder() : previous(platform::current())
{
    platform::Platform seams = previous;
    seams.gpio = this;
    platform::install(seams);
}

GpioRecorder::~GpioRecorder()
{
    platform::install(previous);
}

std::unique_ptr<platform::GpioLine> GpioRecorder::findLine(
    const std::string& name)
{
    auto line = previous.gpio->findLine(name);
    if (!line)
    {
        return line;
    }
    return std::make_unique<RecordedLine>(std::move(line), name, writes);
}

PowerBoard::PowerBoard(const ubbsim::Scenario& scenario) :
    neighbours(scenario), fx(scenario)
{
    for (const char* property :
         {"StandbyPowerStatus", "BasePowerStatus", "OAMErrorInjection",
          "UBBFPGAStatus", "SMCFPGAStatus", "ServerResetStatus"})
    {
        orvane.addProperty(powerStatusPath, powerStatusInterface, property,
                           std::string("Off"));
    }
    orvane.addProperty(vrInfoPath, std::string(vrInfoInterface) + ".UBB",
                       "HW_DESIGN", std::string());
    neighbours.start();
    orvane.start();
    clearProducts();
    for (auto& tested : vrAddressTested)
    {
        tested = false;
    }
}

std::vector<std::string> PowerBoard::published(const std::string& property)
{
    std::vector<std::string> values;
    for (const BusValue& value :
         orvane.writes(powerStatusPath, powerStatusInterface, property))
    {
        values.push_back(std::get<std::string>(value));
    }
    return values;
}

uint8_t PowerBoard::read(int bus, uint8_t address, uint8_t reg)
{
    int event = 0;
    uint8_t value = 0;
    EXPECT_TRUE(I2CSmbusReadBlock(&event, bus, address, reg, &value, 1))
        << "bus " << bus << " address " << unsigned{address};
    return value;
}

int PowerBoard::line(const std::string& name)
{
    int value = -1;
    EXPECT_TRUE(GetGPIOValue(name, value)) << name;
    return value;
}

std::vector<ZellibCall> PowerBoard::events(const std::string& text,
                                           const std::string& messageId) const
{
    std::vector<ZellibCall> found = fx.fake.zellib.calls(ZellibCall::Kind::log);
    std::erase_if(found, [&](const ZellibCall& call) {
        return call.message.find(text) == std::string::npos ||
               (!messageId.empty() && call.messageId != messageId);
    });
    return found;
}

uint32_t PowerBoard::run(uint32_t (*sequence)(OrvaneSvcState&))
{
    uint32_t result = 0;
    out = console([&] { result = sequence(state); });
    return result;
}

bool PowerBoard::runToStage2()
{
    return Stby_Pwr_on_Sqnc_1(state) != 0 && Stby_Pwr_on_FpgaRail(state) != 0 &&
           Stby_Pwr_on_Sqnc_2_PreRetimer(state, 0) != 0;
}

bool PowerBoard::runStandby()
{
    return runToStage2() && Stby_Pwr_on_Sqnc_2(state) != 0 &&
           Stby_Pwr_on_Sqnc_3(state) != 0;
}

void PowerBoard::standbyState()
{
    state.standbyPowerStatus = true;
    // A cold reset whatever the model's start: base sequences run in full.
    fx.fake.devMem.word = 0x00000001;
    platform::Platform seams = platform::current();
    seams.devMem = &fx.fake.devMem;
    platform::install(seams);
}

void PowerBoard::runningState()
{
    standbyState();
    state.basePowerStatus = true;
    state.oamPresentMask = 0xFF;
    state.moduleGoodMask = 0xFF;
    state.sequenceEvent = sequence_event::basePowerOn;
}

} // namespace orvane::test
