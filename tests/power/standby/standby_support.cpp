#include "standby_support.hpp"

#include "orvane/hotswap_setup.hpp"
#include "orvane/oam_presence.hpp"
#include "orvane/power_service.hpp"
#include "orvane/standby_power.hpp"
#include "orvane/ubb_fpga_config.hpp"

namespace orvane::test
{

namespace
{

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

GpioRecorder::GpioRecorder()
{
    platform::Platform seams = platform::current();
    previous = seams;
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
    return std::make_unique<RecordedLine>(std::move(line), name, recorded);
}

std::vector<LineWrite> GpioRecorder::writes() const
{
    return recorded;
}

std::vector<ZellibCall> eventsWithId(const RecordingZellib& zellib,
                                     const std::string& messageId)
{
    std::vector<ZellibCall> found;
    for (const ZellibCall& call : zellib.calls(ZellibCall::Kind::nvLog))
    {
        if (call.messageId == messageId)
        {
            found.push_back(call);
        }
    }
    return found;
}

void clearProducts()
{
    for (auto& product : productTable)
    {
        product = productUnknown;
    }
}

StandbyBoard::StandbyBoard(const ubbsim::Scenario& scenario,
                           const std::string& ubbDesign) :
    neighbours(scenario),
    fx(scenario)
{
    for (const char* property :
         {"StandbyPowerStatus", "BasePowerStatus", "OAMErrorInjection",
          "UBBFPGAStatus", "SMCFPGAStatus", "ServerResetStatus"})
    {
        orvane.addProperty(powerStatusPath, powerStatusInterface, property,
                           std::string("Off"));
    }
    orvane.addProperty(vrInfoPath, std::string(vrInfoInterface) + ".UBB",
                       "HW_DESIGN", ubbDesign);
    neighbours.start();
    orvane.start();
    clearProducts();
    for (auto& tested : vrAddressTested)
    {
        tested = false;
    }
}

std::vector<std::string> StandbyBoard::published(const std::string& property)
{
    std::vector<std::string> values;
    for (const BusValue& value :
         orvane.writes(powerStatusPath, powerStatusInterface, property))
    {
        values.push_back(std::get<std::string>(value));
    }
    return values;
}

bool StandbyBoard::runToStage2()
{
    return Stby_Pwr_on_Sqnc_1(state) != 0 && Stby_Pwr_on_FpgaRail(state) != 0 &&
           Stby_Pwr_on_Sqnc_2_PreRetimer(state, 0) != 0;
}

bool StandbyBoard::runStandby()
{
    return runToStage2() && Stby_Pwr_on_Sqnc_2(state) != 0 &&
           Stby_Pwr_on_Sqnc_3(state) != 0;
}

} // namespace orvane::test
