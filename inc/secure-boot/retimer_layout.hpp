#pragma once

namespace orvane
{

class SecureBootService;

// Boots the retimers by the layout of the images on the active side: one
// image for all retimers, or one per retimer pair, including the first
// update of a single-image SMC to the dual layout.
void bootRetimers(SecureBootService& service);

} // namespace orvane
