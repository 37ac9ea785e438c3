#include "utils/platform/real_files.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace orvane::platform
{

namespace
{

class RealDevMem : public DevMem
{
  public:
    DevMemResult readWord(uint64_t base, uint32_t mapLength, uint32_t offset,
                          uint32_t& value) override
    {
        int fd = ::open("/dev/mem", O_RDONLY | O_SYNC);
        if (fd < 0)
        {
            return DevMemResult::openFailed;
        }
        void* map = ::mmap(nullptr, mapLength, PROT_READ, MAP_SHARED, fd,
                           static_cast<off_t>(base));
        ::close(fd);
        if (map == MAP_FAILED)
        {
            return DevMemResult::mmapFailed;
        }
        // The caller may read past the length it mapped: the kernel maps
        // whole pages, so the word is still inside the mapping.
        value = *reinterpret_cast<volatile uint32_t*>(static_cast<char*>(map) +
                                                      offset);
        if (::munmap(map, mapLength) != 0)
        {
            return DevMemResult::munmapFailed;
        }
        return DevMemResult::ok;
    }
};

} // namespace

std::unique_ptr<DevMem> makeRealDevMem()
{
    return std::make_unique<RealDevMem>();
}

} // namespace orvane::platform
