#include "run/device_contents.hpp"

#include "board/topology.hpp"
#include "erot/board_erot.hpp"
#include "erot/fw_components.hpp"
#include "run/retimer_archives.hpp"

#include <algorithm>
#include <bit>

namespace ubbsim
{

namespace
{

constexpr uint16_t ubbFpgaId = 0x0400;
constexpr uint16_t ifwiId = 0x0500;

void spoil(std::vector<uint8_t>& bytes, DeviceMark mark)
{
    if (mark == DeviceMark::erased)
    {
        std::fill(bytes.begin(), bytes.end(), 0xFF);
    }
    else if (!bytes.empty())
    {
        bytes[bytes.size() / 2] ^= 0x5A;
    }
}

std::vector<uint8_t> running(const erot::ErotState& state, uint16_t id)
{
    const erot::ComponentState* component = state.component(id);
    return component == nullptr
               ? std::vector<uint8_t>{}
               : erot::signedPayload(state, id, state.runningSide(*component));
}

} // namespace

DeviceImages deviceContents(const Scenario& scenario,
                            const erot::ErotState& state,
                            const std::string& root)
{
    DeviceImages images;
    images.root = root;
    for (int side = 0; side < 2; ++side)
    {
        images.ubbFpgaFlash[side] = erot::signedPayload(state, ubbFpgaId, side);
    }
    std::vector<uint8_t> ifwi = running(state, ifwiId);
    for (size_t oam = 0; oam < images.ifwiFlash.size(); ++oam)
    {
        if (scenario.oams[oam].present)
        {
            images.ifwiFlash[oam] = ifwi;
        }
    }
    std::vector<uint8_t> single = running(state, erot::retimerId);
    std::vector<uint8_t> first = running(state, erot::retimer1Id);
    std::vector<uint8_t> second = running(state, erot::retimer2Id);
    for (size_t bit = 0; bit < images.retimers.size(); ++bit)
    {
        bool firstImage = topology::retimer1Positions >> bit & 1;
        images.retimers[bit] =
            scenario.erot.dualRetimers ? (firstImage ? first : second) : single;
        if (scenario.manualRetimer)
        {
            images.retimers[bit] = earlierRetimerImage();
        }
    }

    const DeviceScenario& marks = scenario.devices;
    for (const auto& [side, mark] : marks.ubbFpgaFlash)
    {
        spoil(images.ubbFpgaFlash[static_cast<size_t>(side)], mark);
    }
    for (const auto& [oam, mark] : marks.ifwi)
    {
        spoil(images.ifwiFlash[static_cast<size_t>(oam)], mark);
    }
    for (const auto& [value, mark] : marks.retimers)
    {
        spoil(images.retimers[static_cast<size_t>(
                  std::countr_zero(static_cast<unsigned>(value)))],
              mark);
    }
    return images;
}

} // namespace ubbsim
