#pragma once

#include <cstdint>

namespace orvane::platform
{

enum class DevMemResult
{
    ok,
    openFailed,
    mmapFailed,
    munmapFailed, // the word was read
};

// One 32-bit read of physical memory through a read-only mapping of
// /dev/mem.
class DevMem
{
  public:
    virtual ~DevMem() = default;

    virtual DevMemResult readWord(uint64_t base, uint32_t mapLength,
                                  uint32_t offset, uint32_t& value) = 0;
};

} // namespace orvane::platform
