#pragma once

#include "virtual_board_fixture.hpp"

#include "fakes/bus_fixture.hpp"
#include "neighbours/neighbours.hpp"
#include "orvane/orvane_svc_state.hpp"

#include <chrono>
#include <string>
#include <vector>

namespace orvane::test
{

// One level driven on a GPIO line, at fake-clock time.
struct LineWrite
{
    std::string line;
    int value;
    std::chrono::steady_clock::time_point at;
};

// Sits between the daemon and the installed GPIO seam and records every
// level driven, for as long as it lives.
class GpioRecorder : public platform::Gpio
{
  public:
    GpioRecorder();
    ~GpioRecorder() override;
    GpioRecorder(const GpioRecorder&) = delete;
    GpioRecorder& operator=(const GpioRecorder&) = delete;

    std::unique_ptr<platform::GpioLine> findLine(
        const std::string& name) override;
    std::vector<LineWrite> writes() const;

  private:
    platform::Platform previous;
    std::vector<LineWrite> recorded;
};

// Text that the call wrote to standard output.
template <typename Call>
std::string console(Call call)
{
    ::testing::internal::CaptureStdout();
    call();
    return ::testing::internal::GetCapturedStdout();
}

// The non-volatile events raised with one message id.
std::vector<ZellibCall> eventsWithId(const RecordingZellib& zellib,
                                     const std::string& messageId);

void clearProducts();

// The virtual board with its neighbours on a private system bus, and the
// daemon's own service stood in by a responder that keeps what the
// sequences publish and serves the VR_Info designs a test sets.
class StandbyBoard
{
  public:
    explicit StandbyBoard(
        const ubbsim::Scenario& scenario = VirtualBoardFixture::healthyBoard(),
        const std::string& ubbDesign = "");

    // Power_Status values written so far.
    std::vector<std::string> published(const std::string& property);
    bool runToStage2(); // stage 1, the FPGA rails and the pre-retimer step
    bool runStandby();  // everything up to and with stage 3

    PrivateBus bus;
    ubbsim::Neighbours neighbours;
    BusResponder orvane{"xyz.openbmc_project.Orvane"};
    VirtualBoardFixture fx;
    GpioRecorder gpio;
    OrvaneSvcState state;
};

} // namespace orvane::test
