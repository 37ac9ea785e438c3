#include "base_test_support.hpp"

#include "orvane/oam_presence.hpp"
#include "orvane/power_service.hpp"
#include "utils/gpio_lines.hpp"
#include "utils/i2c_ops.hpp"

#include <iostream>
#include <variant>

#include <gtest/gtest.h>

namespace orvane::test
{

namespace
{

constexpr uint32_t coldResetReason = 0x00000001;
constexpr const char* chassisService = "xyz.openbmc_project.State.Chassis";
constexpr const char* chassisPath = "/xyz/openbmc_project/state/chassis0";

constexpr const char* statusProperties[] = {
    "StandbyPowerStatus", "BasePowerStatus", "OAMErrorInjection",
    "UBBFPGAStatus",      "SMCFPGAStatus",   "ServerResetStatus",
};

} // namespace

ubbsim::Scenario warmBoard(bool baseOn)
{
    ubbsim::Scenario scenario = VirtualBoardFixture::healthyBoard();
    scenario.start = ubbsim::ResetKind::warm;
    scenario.baseWasOn = baseOn;
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

void faultAt(ubbsim::Scenario& scenario, ubbsim::Fault fault)
{
    scenario.faults.push_back(std::move(fault));
}

Console::Console()
{
    testing::internal::CaptureStdout();
}

Console::~Console()
{
    text();
    if (testing::Test::HasFailure())
    {
        std::cerr << captured;
    }
}

std::string Console::text()
{
    if (capturing)
    {
        capturing = false;
        captured = testing::internal::GetCapturedStdout();
    }
    return captured;
}

UbbProduct::UbbProduct(int product)
{
    productTable[ubbProductIndex] = product;
}

UbbProduct::~UbbProduct()
{
    productTable[ubbProductIndex] = productUnknown;
}

BaseBoard::BaseBoard(const ubbsim::Scenario& scenario,
                     const std::map<std::string, std::string>& vrConfigDirs) :
    fx(scenario),
    service(orvaneBusName), chassis(chassisService)
{
    for (const char* property : statusProperties)
    {
        service.addProperty(powerStatusPath, powerStatusInterface, property,
                            std::string());
    }
    for (const auto& [name, folder] : vrConfigDirs)
    {
        service.addProperty(vrInfoPath,
                            std::string(vrInfoInterface) + "." + name,
                            "VR_CONFIG_DIR", folder);
    }
    chassis.addProperty(chassisPath, chassisService, "CurrentPowerState",
                        std::string());
    service.start();
    chassis.start();
}

BaseBoard::~BaseBoard()
{
    chassis.stop();
    service.stop();
}

std::vector<std::string> BaseBoard::published(const std::string& property)
{
    std::vector<std::string> values;
    for (const BusValue& value :
         service.writes(powerStatusPath, powerStatusInterface, property))
    {
        values.push_back(std::get<std::string>(value));
    }
    return values;
}

uint8_t BaseBoard::read(int bus, uint8_t address, uint8_t reg)
{
    int event = 0;
    uint8_t value = 0;
    EXPECT_TRUE(I2CSmbusReadBlock(&event, bus, address, reg, &value, 1))
        << "bus " << bus << " address " << unsigned{address};
    return value;
}

int BaseBoard::line(const std::string& name)
{
    int value = -1;
    EXPECT_TRUE(GetGPIOValue(name, value)) << name;
    return value;
}

std::vector<ZellibCall> BaseBoard::events(const std::string& text,
                                          const std::string& messageId) const
{
    std::vector<ZellibCall> found;
    for (const ZellibCall& call : fx.fake.zellib.calls(ZellibCall::Kind::log))
    {
        if (call.message.find(text) != std::string::npos &&
            (messageId.empty() || call.messageId == messageId))
        {
            found.push_back(call);
        }
    }
    return found;
}

std::vector<ZellibCall> BaseBoard::nvEvents(const std::string& messageId) const
{
    std::vector<ZellibCall> found;
    for (const ZellibCall& call : fx.fake.zellib.calls(ZellibCall::Kind::nvLog))
    {
        if (call.messageId == messageId)
        {
            found.push_back(call);
        }
    }
    return found;
}

void BaseBoard::standbyState()
{
    state.standbyPowerStatus = true;
    // The SoC reports a cold reset, whatever start the board model had: the
    // base sequences then run in full instead of learning a kept state.
    fx.fake.devMem.word = coldResetReason;
    platform::Platform seams = platform::current();
    seams.devMem = &fx.fake.devMem;
    platform::install(seams);
}

void BaseBoard::runningState(uint8_t present)
{
    standbyState();
    state.basePowerStatus = true;
    state.oamPresentMask = present;
    state.moduleGoodMask = present;
    state.sequenceEvent = sequence_event::basePowerOn;
}

} // namespace orvane::test
