#pragma once

namespace orvane
{

class ImageProcessStrategy;

// Reads every OAM's IFWI flash in one stream; the UBB FPGA marks the OAMs
// whose data differed. True when only absent OAMs differ.
bool ReadIFWIImage(ImageProcessStrategy& strategy);

// The digest of the IFWI dump into the strategy's device hash.
bool HashIfwiDump(ImageProcessStrategy& strategy);

// After a good read: the dump against the active or the inactive image.
bool CompareIfwiWithActive(ImageProcessStrategy& strategy);
bool CompareIfwiWithInactive(ImageProcessStrategy& strategy);

} // namespace orvane
