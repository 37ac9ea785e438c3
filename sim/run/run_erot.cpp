#include "run/run_erot.hpp"

#include "erot/board_erot.hpp"
#include "erot/state_json.hpp"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace ubbsim
{

namespace fs = std::filesystem;

namespace
{

// Byte 0 of the SMC's persist record: the inactive side was made equal to
// the active one in this power cycle.
constexpr uint8_t firmwareCopyCompleted = 1U << 3;

} // namespace

RunErot::RunErot(const Scenario& scenario, const fs::path& rootDir,
                 const fs::path& outDir, const SimClock& clock,
                 std::string savedState) :
    root(rootDir),
    out(outDir), statePath(std::move(savedState))
{
    erot::BoardKeys keys = erot::generateBoardKeys();
    erot::ErotState state = erot::setUpBoardErot(scenario.erot, root, keys);
    if (scenario.firmwareCopy.copyCompleted)
    {
        state.persist[0] |= firmwareCopyCompleted;
    }
    if (!statePath.empty() && fs::exists(statePath))
    {
        erot::adoptSaved(state, erot::loadState(statePath));
    }
    std::ofstream(out / "erot-signing-key.pem") << keys.trusted.privatePem();
    link = std::make_unique<erot::ErotEndpoint>(
        std::move(state), scenario.erot.faults,
        [&clock] { return clock.now(); });
    link->recordTo((out / "erot.jsonl").string());
}

Neighbours::MctpHandler RunErot::handler()
{
    return [this](uint8_t address, uint8_t eid, uint16_t timeoutMs,
                  const std::vector<uint8_t>& request)
               -> std::optional<std::vector<uint8_t>> {
        erot::Delivery delivery =
            link->exchange({address, eid, timeoutMs}, request);
        using Kind = erot::Delivery::Kind;
        if (delivery.kind == Kind::linkDown || delivery.kind == Kind::rejected)
        {
            return std::nullopt;
        }
        return std::move(delivery.frame);
    };
}

void RunErot::fillRmDigests(Scenario& scenario) const
{
    auto digest = erot::rmImageSha256(root, link->state().activeSide);
    for (OamSlot& slot : scenario.oams)
    {
        if (std::all_of(slot.rmDigest.begin(), slot.rmDigest.end(),
                        [](uint8_t byte) { return byte == 0; }))
        {
            slot.rmDigest = digest;
        }
    }
}

void RunErot::finish()
{
    erot::ErotState state = link->state();
    std::vector<std::string> paths = {(out / "erot-state.json").string()};
    if (!statePath.empty())
    {
        paths.push_back(statePath);
    }
    for (const std::string& path : paths)
    {
        try
        {
            erot::saveState(state, path);
        }
        catch (const std::runtime_error& error)
        {
            saveErrors.push_back(error.what());
        }
    }
}

std::string RunErot::summaryLine() const
{
    auto exchanges = link->exchanges();
    auto faulted =
        std::count_if(exchanges.begin(), exchanges.end(), [](const auto& e) {
            return !e.fault.empty() &&
                   e.delivery != erot::Delivery::Kind::rejected;
        });
    auto rejected =
        std::count_if(exchanges.begin(), exchanges.end(), [](const auto& e) {
            return e.delivery == erot::Delivery::Kind::rejected;
        });
    erot::ErotState state = link->state();
    std::ostringstream line;
    line << "eRoT: " << exchanges.size() << " exchange(s), " << faulted
         << " faulted, " << rejected << " rejected; " << link->resets()
         << " SMC reset(s); side " << (state.activeSide == 0 ? "A" : "B")
         << " active\n";
    for (const std::string& error : saveErrors)
    {
        line << "eRoT state NOT saved: " << error << "\n";
    }
    return line.str();
}

} // namespace ubbsim
