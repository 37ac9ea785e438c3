// The production daemon's first standby stage on the guest's devices,
// judged by what the kernel saw and by the daemon's trail.
#include "guest_board.hpp"

#include "fakes/bus_fixture.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include <gtest/gtest.h>

namespace orvane::kernel_test
{
namespace
{

using Texts = std::vector<std::string>;

constexpr const char* chassisName = "xyz.openbmc_project.State.Chassis";
constexpr const char* chassisPath = "/xyz/openbmc_project/state/chassis0";
constexpr const char* powerOff =
    "xyz.openbmc_project.State.Chassis.PowerState.Off";

// The daemon, its console going to a file, until the object goes.
class Daemon
{
  public:
    Daemon(const std::string& program, const std::string& trail)
    {
        // Made before the daemon starts, so that it can be read at once.
        int out = ::open(trail.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        pid = ::fork();
        if (pid == 0)
        {
            ::dup2(out, 1);
            ::dup2(out, 2);
            ::execl(program.c_str(), program.c_str(), nullptr);
            ::_exit(127);
        }
        ::close(out);
    }
    ~Daemon()
    {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }

  private:
    pid_t pid;
};

bool waitForText(const std::string& path, const std::string& text)
{
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (readText(path).find(text) == std::string::npos)
    {
        if (std::chrono::steady_clock::now() > deadline)
        {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

std::string standbyStatus()
{
    sd_bus* bus = nullptr;
    char* value = nullptr;
    if (sd_bus_open_system(&bus) >= 0)
    {
        sd_bus_get_property_string(bus, "xyz.openbmc_project.Orvane",
                                   "/xyz/openbmc_project/Orvane",
                                   "xyz.openbmc_project.Orvane.Power_Status",
                                   "StandbyPowerStatus", nullptr, &value);
        sd_bus_unref(bus);
    }
    std::string text = value ? value : "(no answer)";
    std::free(value);
    return text;
}

TEST(KernelStandby, FirstStageDrivesTheGuestsLinesAndRegisters)
{
    SimChip chip;
    KernelTrace trace(chip);
    LineWatch watch(chip);
    test::PrivateBus bus;
    test::BusResponder chassis(chassisName);
    chassis.addProperty(chassisPath, chassisName, "CurrentPowerState",
                        std::string(powerOff));
    chassis.start();
    const std::string trail =
        std::string(std::getenv("GUEST_OUT")) + "/trail.log";
    {
        Daemon daemon(std::getenv("GUEST_DAEMON"), trail);
        ASSERT_TRUE(waitForText(trail, "HMC Ready signal asserted"))
            << readText(trail);
        // The cleared state is published, base power to the chassis too.
        EXPECT_EQ(standbyStatus(), "Off");
        EXPECT_EQ(chassis.writes(chassisPath, chassisName, "CurrentPowerState"),
                  std::vector<test::BusValue>{std::string(powerOff)});
    }

    // The stage ends with the HMC's ready signal; what follows is later
    // stages' business.
    Texts seen;
    std::vector<double> pulse;
    for (const TraceRecord& record : trace.records())
    {
        seen.push_back(record.text);
        if (record.text.rfind("SMC_FPGA_PROG_CTRL=", 0) == 0)
        {
            pulse.push_back(record.seconds);
        }
        if (seen.size() >= 2 && seen.end()[-2] == "GPU_BASE_HMC_READY=1" &&
            seen.back() == seen.end()[-2])
        {
            break;
        }
    }
    // The ready signals go low, the SMC FPGA's programming pin pulses, and
    // each expander register is written and read back. A request for
    // output drives its initial level already, and the set after it again.
    Texts expected;
    for (const char* level : {"GPU_BASE_FPGA_READY=0", "GPU_BASE_PWR_GD=0",
                              "GPU_BASE_HMC_READY=0", "SMC_FPGA_PROG_CTRL=0",
                              "SMC_FPGA_PROG_CTRL=1", "SMC_FPGA_PROG_CTRL=0"})
    {
        expected.insert(expected.end(), 2, level);
    }
    for (const char* setting :
         {"0800", "0908", "0a00", "1800", "19f0", "1a01", "1bcf"})
    {
        const std::string reg(setting, 2);
        const std::string value(setting + 2, 2);
        expected.push_back("4-25 w:" + reg + value);
        expected.push_back("4-25 w:" + reg + " r:" + value);
    }
    expected.insert(expected.end(), 2, "GPU_BASE_HMC_READY=1");
    EXPECT_EQ(seen, expected);
    ASSERT_EQ(pulse.size(), 6u);
    EXPECT_GE(pulse[4] - pulse[2], 0.1); // high for 100 ms

    Texts requests;
    for (const char* line :
         {"GPU_BASE_FPGA_READY", "GPU_BASE_PWR_GD", "GPU_BASE_HMC_READY",
          "SMC_FPGA_PROG_CTRL", "SMC_FPGA_PROG_CTRL", "SMC_FPGA_PROG_CTRL",
          "GPU_BASE_HMC_READY"})
    {
        requests.push_back(line + std::string(" requested by SetGPIOOutput "
                                              "as output"));
        requests.push_back(line + std::string(" released"));
    }
    Texts changes = watch.changes();
    changes.resize(std::min(changes.size(), requests.size()));
    EXPECT_EQ(changes, requests);

    const std::string text = readText(trail);
    for (const char* line :
         {"Stby_Pwr_on_Sqnc_1() start",
          "Cold reset detected and UBB FPGA not configured yet",
          "OrvaneSvc StartUp", "SMC FPGA register 0x18, value: 0x00",
          "SMC FPGA register 0x19, value: 0xf0",
          "SMC FPGA register 0x1a, value: 0x01", "HMC Ready signal asserted"})
    {
        EXPECT_NE(text.find(line), std::string::npos) << line;
    }
}

} // namespace
} // namespace orvane::kernel_test
