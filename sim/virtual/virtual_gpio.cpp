#include "virtual/virtual_gpio.hpp"

#include <cerrno>
#include <optional>
#include <system_error>

namespace ubbsim
{

namespace
{

using orvane::platform::GpioDirection;

int32_t resultOf(const std::vector<uint8_t>& reply)
{
    if (reply.empty())
    {
        return -EIO;
    }
    WireReader in(reply);
    return in.i32();
}

[[noreturn]] void throwErrno(int32_t result, const char* what)
{
    throw std::system_error(-result, std::system_category(), what);
}

class VirtualLine : public orvane::platform::GpioLine
{
  public:
    VirtualLine(BoardPort& link, std::string name) :
        link(link), name(std::move(name))
    {}

    ~VirtualLine() override
    {
        if (handle)
        {
            releaseHandle();
        }
    }

    VirtualLine(const VirtualLine&) = delete;
    VirtualLine& operator=(const VirtualLine&) = delete;

    void request(const std::string& consumer, GpioDirection direction,
                 int flags, int defaultValue) override
    {
        if (handle)
        {
            throwErrno(-EBUSY, "error requesting GPIO line");
        }
        WireWriter out;
        out.u8(static_cast<uint8_t>(Op::gpioRequest))
            .str(name)
            .str(consumer)
            .u8(direction == GpioDirection::output ? 1 : 0)
            .i32(flags)
            .i32(defaultValue);
        auto reply = link.call(out);
        WireReader in(reply);
        int32_t result = reply.empty() ? -EIO : in.i32();
        if (result < 0)
        {
            throwErrno(result, "error requesting GPIO line");
        }
        handle = in.u32();
    }

    int getValue() override
    {
        int32_t result = onHandle(Op::gpioGet, 0);
        if (result < 0)
        {
            throwErrno(result, "error reading GPIO line value");
        }
        return result;
    }

    void setValue(int value) override
    {
        int32_t result = onHandle(Op::gpioSet, value);
        if (result < 0)
        {
            throwErrno(result, "error setting GPIO line value");
        }
    }

    void release() override
    {
        if (handle)
        {
            releaseHandle();
        }
    }

  private:
    int32_t onHandle(Op op, int value)
    {
        if (!handle)
        {
            return -EPERM;
        }
        WireWriter out;
        out.u8(static_cast<uint8_t>(op)).u32(*handle);
        if (op == Op::gpioSet)
        {
            out.i32(value);
        }
        return resultOf(link.call(out));
    }

    void releaseHandle()
    {
        WireWriter out;
        out.u8(static_cast<uint8_t>(Op::gpioRelease)).u32(*handle);
        link.call(out);
        handle.reset();
    }

    BoardPort& link;
    std::string name;
    std::optional<uint32_t> handle;
};

} // namespace

std::unique_ptr<orvane::platform::GpioLine> VirtualGpio::findLine(
    const std::string& name)
{
    WireWriter out;
    out.u8(static_cast<uint8_t>(Op::gpioFind)).str(name);
    auto reply = link.call(out);
    if (reply.empty() || WireReader(reply).u8() == 0)
    {
        return nullptr;
    }
    return std::make_unique<VirtualLine>(link, name);
}

} // namespace ubbsim
