#include "server/dispatch.hpp"

#include <cerrno>

namespace ubbsim
{

namespace
{

// The reset reason register of the SoC, the only word the daemon reads.
constexpr uint64_t resetReasonBase = 0x1E6E2000;
constexpr uint32_t resetReasonOffset = 0x64;

WireWriter answer(int32_t result)
{
    WireWriter out;
    out.i32(result);
    return out;
}

std::vector<uint8_t> transfer(Board& board, WireReader& in)
{
    int bus = in.u16();
    bool pec = in.u8() != 0;
    unsigned count = in.u8();
    std::vector<I2cSegment> segments;
    for (unsigned i = 0; i < count && in.good(); ++i)
    {
        segments.push_back(in.segment());
    }
    if (!in.good() || segments.empty())
    {
        return answer(-EINVAL).buffer();
    }
    int result = board.transfer(bus, segments, pec);
    WireWriter out = answer(result);
    for (const auto& segment : segments)
    {
        if (result == 0 && segment.read)
        {
            out.bytes(segment.data);
        }
    }
    return out.buffer();
}

std::vector<uint8_t> requestLine(Board& board, WireReader& in, uint64_t owner)
{
    std::string name = in.str();
    std::string consumer = in.str();
    bool output = in.u8() != 0;
    int flags = in.i32();
    int defaultValue = in.i32();
    if (!in.good())
    {
        return answer(-EINVAL).buffer();
    }
    uint32_t handle = 0;
    int result = board.requestLine(owner, name, consumer, output, flags,
                                   defaultValue, handle);
    WireWriter out = answer(result);
    out.u32(handle);
    return out.buffer();
}

std::vector<uint8_t> readDevMem(Board& board, WireReader& in)
{
    uint64_t base = in.u64();
    in.u32(); // the mapped length doesn't matter to the board
    uint32_t offset = in.u32();
    if (base != resetReasonBase || offset != resetReasonOffset)
    {
        return answer(-EFAULT).buffer();
    }
    WireWriter out = answer(0);
    out.u32(board.resetReason());
    return out.buffer();
}

} // namespace

std::vector<uint8_t> dispatch(Board& board, const std::vector<uint8_t>& request,
                              uint64_t owner)
{
    WireReader in(request);
    auto op = static_cast<Op>(in.u8());
    switch (op)
    {
        case Op::i2cOpenBus:
            return answer(board.openBus(in.u16())).buffer();
        case Op::i2cTransfer:
            return transfer(board, in);
        case Op::gpioFind:
        {
            WireWriter out;
            out.u8(board.lineExists(in.str()) ? 1 : 0);
            return out.buffer();
        }
        case Op::gpioRequest:
            return requestLine(board, in, owner);
        case Op::gpioGet:
            return answer(board.getLine(in.u32())).buffer();
        case Op::gpioSet:
        {
            uint32_t handle = in.u32();
            return answer(board.setLine(handle, in.i32())).buffer();
        }
        case Op::gpioRelease:
            return answer(board.releaseLine(in.u32())).buffer();
        case Op::devMemRead:
            return readDevMem(board, in);
        case Op::retimerEnsure:
        {
            int switchValue = in.i32();
            return answer(board.retimerEnsure(switchValue, in.str())).buffer();
        }
        case Op::driverWrite:
        {
            std::string file = in.str();
            std::string text = in.str();
            return answer(in.good() ? board.driverWrite(file, text) : -EINVAL)
                .buffer();
        }
        case Op::toolRun:
        {
            std::string tool = in.str();
            std::vector<std::string> arguments(in.u8());
            for (std::string& argument : arguments)
            {
                argument = in.str();
            }
            return answer(in.good() ? board.toolRun(tool, arguments) : -EINVAL)
                .buffer();
        }
    }
    return answer(-ENOSYS).buffer();
}

} // namespace ubbsim
