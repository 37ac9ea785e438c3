// A management client of the virtual daemon's secure image information:
// the machine's busctl against the run's private bus, as the scenario's
// "clients" call it.

#include "json_lines.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

namespace fs = std::filesystem;
using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::Not;

TEST(ImageInfoClient, SeesTheInterfacesCommitsAndHearsADeadLink)
{
    const fs::path out = fs::temp_directory_path() /
                         ("ubbsim-arb-client-" + std::to_string(::getpid()));
    // Under an emulator the daemon runs several times slower.
    const char* wrapper = std::getenv("UBBSIM_EXEC_WRAPPER");
    const std::string command =
        std::string(wrapper != nullptr ? wrapper : "") + " " + UBB_SIM_PROGRAM +
        " --quiet --speed " + (wrapper ? "5" : "20") +
        " --scenario arb-client --out '" + out.string() + "' >'" +
        out.string() + ".console' 2>&1";
    const int raw = std::system(command.c_str());
    EXPECT_TRUE(WIFEXITED(raw) && WEXITSTATUS(raw) == 0) << command;
    const std::vector<json> calls = jsonLines(out / "clients.jsonl");
    const std::vector<json> events = jsonLines(out / "events.jsonl");
    // Clean under the sanitizers that the build may carry.
    for (const fs::path& path :
         {out / "trail.log", fs::path(out) += ".console"})
    {
        std::stringstream text;
        text << std::ifstream(path).rdbuf();
        EXPECT_THAT(text.str(), Not(HasSubstr("Sanitizer"))) << path;
        EXPECT_THAT(text.str(), Not(HasSubstr("runtime error:"))) << path;
    }
    if (std::getenv("UBBSIM_KEEP_TEST_RUNS") == nullptr)
    {
        fs::remove_all(out);
        fs::remove(fs::path(out) += ".console");
    }

    std::vector<std::string> outputs;
    for (const json& call : calls)
    {
        EXPECT_EQ(call["status"], 0) << call.dump();
        outputs.push_back(call["output"]);
    }
    ASSERT_EQ(outputs.size(), 5U);
    for (const char* suffix :
         {"VR", "Retimer", "Retimer_1", "Retimer_2", "UBB_FPGA", "RMC", "IFWI",
          "EROT", "SMC_FPGA", "APCFG", "SMC", "BUNDLE"})
    {
        EXPECT_THAT(outputs[0],
                    HasSubstr("xyz.openbmc_project.Orvane.SecureImageInfo." +
                              std::string(suffix) + " "))
            << suffix;
    }
    EXPECT_THAT(outputs[0],
                HasSubstr("xyz.openbmc_project.Orvane.SecureBoot_Status "));
    EXPECT_THAT(outputs[0], HasSubstr(".ARBCommit "));
    EXPECT_EQ(std::vector(outputs.begin() + 1, outputs.end()),
              (std::vector<std::string>{"i 0\n", "av 2 i 0 b true\n", "i 0\n",
                                        "av 2 i -5 b false\n"}));
    // The commit completed the retimer's requested SVN revocation; the
    // state events of the boot's own refresh are not results.
    std::vector<std::string> revocations;
    for (const json& event : events)
    {
        const std::string id = event.value("id", "");
        if (event.value("call", "") == "log" &&
            id.find(".Revocation") != std::string::npos &&
            id.find("RevocationState") == std::string::npos)
        {
            revocations.push_back(event["args"][0]);
        }
    }
    EXPECT_EQ(revocations, std::vector<std::string>{"Retimer,SVN,0x00000001"});
}

} // namespace
} // namespace ubbsim::test
