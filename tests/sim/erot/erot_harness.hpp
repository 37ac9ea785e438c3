#pragma once

#include "erot/board_erot.hpp"
#include "erot/erot_endpoint.hpp"
#include "erot/image_signer.hpp"
#include "fakes/fake_platform.hpp"

#include <erotlib/erot.hpp>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace ubbsim::erot::test
{

// A board's eRoT reached by the client library in-process: the images of
// the scenario signed into a temporary root, the endpoint behind erotlib's
// transport, and a board clock that the test moves.
class ErotTest : public ::testing::Test
{
  protected:
    ErotTest();
    ~ErotTest() override;

    void boot(const ErotScenario& scenario = {});
    void boot(ErotState state, std::vector<ErotFault> faults = {});
    void bootWith(std::vector<ErotFault> faults);

    std::vector<uint8_t> file(int side, const std::string& name) const;
    // Fetches an image pair of a side as the SMC does and has the eRoT
    // judge it; the status byte, or -1 when the library failed.
    int verify(int side, const std::string& stem);
    int verify(const SignedImage& image);
    // The trace log entries with this tag, oldest first.
    std::vector<TraceRecord> traces(const std::string& tag) const;
    // Reads that must succeed; what they hand out, copied.
    std::vector<::erot::BootPartitionRecord> bootPartitions();
    std::vector<::erot::ComponentInfo> componentInfo(uint8_t version = 4);

    SimTime now{0};
    orvane::test::TempFileRoot scratch;
    std::filesystem::path root = scratch.root();
    static const BoardKeys& keys();
    std::unique_ptr<ErotEndpoint> endpoint;
    uint8_t status = 0xEE;

  private:
    ::erot::TransportFn previous;
};

ErotFault fault(std::string kind, int opcode = -1, int value = 0,
                int count = -1);

} // namespace ubbsim::erot::test
