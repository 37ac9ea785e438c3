#pragma once

#include "erot/ec_key.hpp"
#include "erot/erot_scenario.hpp"
#include "erot/erot_state.hpp"

#include <array>
#include <filesystem>
#include <vector>

namespace ubbsim::erot
{

// The keys of one run, made at its start. The eRoT trusts `trusted` and
// holds `revoked` as revoked; `unknown` signs under an index it doesn't
// hold; `identity` is the device's own.
struct BoardKeys
{
    EcKey trusted;
    EcKey revoked;
    EcKey unknown;
    EcKey identity;
};

inline constexpr uint8_t trustedKeyIndex = 0;
inline constexpr uint8_t revokedKeyIndex = 1;
inline constexpr uint8_t unknownKeyIndex = 5;

BoardKeys generateBoardKeys();

// Signs and writes the image pairs of both sides below
// <root>/var/lib/images/{A,B}, marked as the scenario says, and returns
// the state of an eRoT that has measured them.
ErotState setUpBoardErot(const ErotScenario& scenario,
                         const std::filesystem::path& root,
                         const BoardKeys& keys);

// The image signed for a component's side: what a device programmed from
// that side holds, whatever befell the file afterwards. Empty for a
// component that the board doesn't carry.
std::vector<uint8_t> signedPayload(const ErotState& state, uint16_t id,
                                   int side);

// SHA-256 of bytes, as the RM service reports an image.
std::array<uint8_t, 32> sha256Of(const std::vector<uint8_t>& data);

// SHA-256 of the RM image of a side, as the RM service reports it for a
// module that holds that image; zeros when there is no such file.
std::array<uint8_t, 32> rmImageSha256(const std::filesystem::path& root,
                                      int side);

} // namespace ubbsim::erot
