#include "board/fault_book.hpp"

#include "board/board_time.hpp"

namespace ubbsim
{

FaultBook::FaultBook(std::vector<Fault> faults) : faults(std::move(faults))
{}

bool FaultBook::active(const Fault& fault, SimTime t)
{
    if (t < fromSeconds(fault.at))
    {
        return false;
    }
    return !fault.until || t < fromSeconds(*fault.until);
}

bool FaultBook::nack(int bus, int address, SimTime t) const
{
    for (const Fault& fault : faults)
    {
        // Without an address the whole bus stops answering.
        if (fault.kind == "nack" && fault.bus == bus &&
            (fault.address < 0 || fault.address == address) && active(fault, t))
        {
            return true;
        }
    }
    return false;
}

bool FaultBook::lineBusy(const std::string& line, SimTime t) const
{
    for (const Fault& fault : faults)
    {
        if (fault.kind == "gpioBusy" && fault.line == line && active(fault, t))
        {
            return true;
        }
    }
    return false;
}

bool FaultBook::railBlocked(const std::string& rail, SimTime t) const
{
    for (const Fault& fault : faults)
    {
        if (fault.kind == "railNoPowerGood" && fault.rail == rail &&
            active(fault, t))
        {
            return true;
        }
    }
    return false;
}

std::optional<uint8_t> FaultBook::emcValue(SimTime t) const
{
    for (const Fault& fault : faults)
    {
        if (fault.kind == "emcMisconfig" && active(fault, t))
        {
            return static_cast<uint8_t>(fault.value);
        }
    }
    return std::nullopt;
}

uint8_t FaultBook::efuse(int oam, SimTime t) const
{
    for (const Fault& fault : faults)
    {
        if (fault.kind == "efuse" && fault.oam == oam && active(fault, t))
        {
            return static_cast<uint8_t>(fault.value);
        }
    }
    return 0;
}

bool FaultBook::take(const std::string& kind)
{
    for (Fault& fault : faults)
    {
        if (fault.kind != kind || fault.count == 0)
        {
            continue;
        }
        if (fault.count > 0)
        {
            --fault.count;
        }
        return true;
    }
    return false;
}

bool FaultBook::takeHotswapFailure()
{
    return take("hotswapNoGood");
}

bool FaultBook::takeFpgaTimeout()
{
    return take("fpgaTimeout");
}

std::vector<Fault> FaultBook::ofKind(const std::string& kind) const
{
    std::vector<Fault> found;
    for (const Fault& fault : faults)
    {
        if (fault.kind == kind)
        {
            found.push_back(fault);
        }
    }
    return found;
}

} // namespace ubbsim
