#pragma once

#include "board/board.hpp"
#include "fakes/bus_fixture.hpp"
#include "fakes/console_capture.hpp"
#include "fakes/fake_platform.hpp"
#include "neighbours/neighbours.hpp"
#include "orvane/orvane_svc_state.hpp"
#include "orvane/power_service.hpp"
#include "scenario/scenario.hpp"
#include "server/direct_port.hpp"
#include "virtual/virtual_gpio.hpp"
#include "virtual/virtual_i2c.hpp"
#include "virtual/virtual_machine.hpp"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

namespace orvane::test
{

// The virtual board in-process on the fake clock: sleeps and bus time move
// one board time, instantly. I2C, GPIO and the reset reason go to the board
// model; the other seams stay FakePlatform's.
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

// Standby on and the UBB FPGA loaded, as after an SMC warm reset; with
// `baseOn` base power is up as well and the host asks for it.
ubbsim::Scenario warmBoard(bool baseOn);
// A healthy board, or `scenario`, with one more fault of this kind.
ubbsim::Scenario withFault(
    const std::string& kind,
    ubbsim::Scenario scenario = VirtualBoardFixture::healthyBoard());
ubbsim::Fault faultOf(const std::string& kind);
// A device that doesn't answer, or a whole bus when address is -1.
ubbsim::Fault silent(int bus, int address);
void hostAt(ubbsim::Scenario& scenario, double seconds,
            ubbsim::HostAction::Kind kind);

// The product scan's request for a new look at the FRUs.
inline constexpr const char* rescan =
    "busctl call xyz.openbmc_project.FruDevice /xyz/openbmc_project/FruDevice "
    "xyz.openbmc_project.FruDeviceManager ReScan";

// Non-volatile events with this id.
std::vector<ZellibCall> eventsWithId(const RecordingZellib& zellib,
                                     const std::string& messageId);

// The product table as before any scan, and one UBB product for a test.
void clearProducts();
struct UbbProduct
{
    explicit UbbProduct(int product);
    ~UbbProduct();
};

// One level driven on a GPIO line, at fake-clock time.
struct LineWrite
{
    std::string line;
    int value;
    std::chrono::steady_clock::time_point at;
};

// Sits in front of the installed GPIO seam and records every level driven.
class GpioRecorder : public platform::Gpio
{
  public:
    GpioRecorder();
    ~GpioRecorder() override;

    std::unique_ptr<platform::GpioLine> findLine(
        const std::string& name) override;

    std::vector<LineWrite> writes;

  private:
    platform::Platform previous;
};

// The virtual board with its neighbours on a private bus, and a responder
// in the daemon's place that keeps what the sequences publish.
class PowerBoard
{
  public:
    explicit PowerBoard(
        const ubbsim::Scenario& scenario = VirtualBoardFixture::healthyBoard());

    // Power_Status values written so far.
    std::vector<std::string> published(const std::string& property);
    // Read as the daemon reads them.
    uint8_t read(int bus, uint8_t address, uint8_t reg);
    int line(const std::string& name);
    // Event log entries (not the non-volatile copies) holding `text`, of
    // this message id if one is given.
    std::vector<ZellibCall> events(const std::string& text,
                                   const std::string& messageId = "") const;

    // Runs one sequence; its console text stays in `out`.
    uint32_t run(uint32_t (*sequence)(OrvaneSvcState&));
    bool runToStage2(); // stage 1, the FPGA rails and the pre-retimer step
    bool runStandby();  // everything up to and with stage 3
    // The state as the sequences leave it after standby power-up from a
    // cold reset, and for a running board also after base power-on.
    void standbyState();
    void runningState();

    PrivateBus bus;
    ubbsim::Neighbours neighbours;
    BusResponder orvane{"xyz.openbmc_project.Orvane"};
    VirtualBoardFixture fx;
    GpioRecorder gpio;
    OrvaneSvcState state;
    std::string out;
};

// Every seam faked, and the daemon's VR_Info: each module's design and its
// configuration folder "/vr/<module>".
class VrInfoTest : public ::testing::Test
{
  protected:
    void serve(const std::map<std::string, std::string>& designs)
    {
        for (const auto& [name, design] : designs)
        {
            std::string interface = std::string(vrInfoInterface) + "." + name;
            responder->addProperty(vrInfoPath, interface, "HW_DESIGN", design);
            responder->addProperty(vrInfoPath, interface, "VR_CONFIG_DIR",
                                   "/vr/" + name);
        }
        responder->start();
    }

    void config(const std::string& name, const std::string& json)
    {
        std::filesystem::create_directories(platform::path("/vr/" + name));
        std::ofstream(platform::path("/vr/" + name + "/vr_config.json"))
            << json;
    }

    PrivateBus bus;
    FakePlatform platform;
    std::unique_ptr<BusResponder> responder =
        std::make_unique<BusResponder>("xyz.openbmc_project.Orvane");
};

} // namespace orvane::test
