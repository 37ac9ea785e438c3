#pragma once

#include "virtual_board_fixture.hpp"

#include "fakes/bus_fixture.hpp"
#include "orvane/orvane_svc_state.hpp"
#include "scenario/scenario.hpp"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace orvane::test
{

// Standby on and the UBB FPGA loaded, as after an SMC warm reset; with
// `baseOn` base power is up as well and the host asks for it.
ubbsim::Scenario warmBoard(bool baseOn);
void hostAt(ubbsim::Scenario& scenario, double seconds,
            ubbsim::HostAction::Kind kind);
void faultAt(ubbsim::Scenario& scenario, ubbsim::Fault fault);

// Standard output from construction until text() is asked for; shown on
// stderr when the test failed.
class Console
{
  public:
    Console();
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    std::string text();

  private:
    bool capturing = true;
    std::string captured;
};

// The UBB product seen by the IO expander set-up, for one test.
class UbbProduct
{
  public:
    explicit UbbProduct(int product);
    ~UbbProduct();
    UbbProduct(const UbbProduct&) = delete;
    UbbProduct& operator=(const UbbProduct&) = delete;
};

// The virtual board on the fake clock with a private system bus, on which
// stand-ins for the daemon's own Power_Status object and for the chassis
// state record what the sequences publish.
class BaseBoard
{
  public:
    // `vrConfigDirs`: the VR configuration folder of "UBB" or "OAM_n".
    explicit BaseBoard(
        const ubbsim::Scenario& scenario,
        const std::map<std::string, std::string>& vrConfigDirs = {});
    ~BaseBoard();
    BaseBoard(const BaseBoard&) = delete;
    BaseBoard& operator=(const BaseBoard&) = delete;

    // Values written to one Power_Status property, in order.
    std::vector<std::string> published(const std::string& property);

    // One register of a device, and one GPIO line, read as the daemon
    // reads them.
    uint8_t read(int bus, uint8_t address, uint8_t reg);
    int line(const std::string& name);

    // Event log entries (not the non-volatile copies) whose text holds
    // `text`; with a message id, only those of that id.
    std::vector<ZellibCall> events(const std::string& text,
                                   const std::string& messageId = "") const;
    std::vector<ZellibCall> nvEvents(const std::string& messageId) const;

    // The state after a standby power-up from a cold reset, and for a
    // running board also after base power-on, as the sequences leave it.
    void standbyState();
    void runningState(uint8_t present = 0xFF);

    VirtualBoardFixture fx;
    PrivateBus bus;
    BusResponder service;
    BusResponder chassis;
    OrvaneSvcState state;
};

} // namespace orvane::test
