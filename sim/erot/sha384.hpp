#pragma once

#include "erot/erot_state.hpp"

#include <span>

namespace ubbsim::erot
{

Digest sha384(std::span<const uint8_t> data);

} // namespace ubbsim::erot
