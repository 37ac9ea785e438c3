#include "fakes/fake_gpio.hpp"

#include <system_error>

namespace orvane::test
{

namespace
{

[[noreturn]] void fail(int error, const char* what)
{
    throw std::system_error(error, std::system_category(), what);
}

} // namespace

class FakeGpio::Handle : public platform::GpioLine
{
  public:
    Handle(FakeGpio& owner, std::string name) :
        owner(owner), name(std::move(name))
    {}

    ~Handle() override
    {
        release();
    }

    void request(const std::string&, platform::GpioDirection direction, int,
                 int defaultValue) override
    {
        std::lock_guard lock(owner.mutex);
        Line& line = existing();
        owner.requested.push_back({name, direction, defaultValue});
        if (line.failingRequests != 0)
        {
            line.failingRequests -= line.failingRequests > 0 ? 1 : 0;
            fail(line.requestError, "error requesting GPIO lines");
        }
        if (line.holder != nullptr)
        {
            fail(EBUSY, "error requesting GPIO lines");
        }
        line.holder = this;
        line.isOutput = direction == platform::GpioDirection::output;
        line.output = line.isOutput ? defaultValue : line.output;
    }

    int getValue() override
    {
        std::lock_guard lock(owner.mutex);
        Line& line = existing();
        if (line.holder != this || line.getError != 0)
        {
            fail(line.holder != this ? EPERM : line.getError,
                 "error reading GPIO line value");
        }
        return line.isOutput ? line.output : line.input;
    }

    void setValue(int value) override
    {
        std::lock_guard lock(owner.mutex);
        Line& line = existing();
        if (line.holder != this || !line.isOutput || line.setError != 0)
        {
            fail(line.holder != this || !line.isOutput ? EPERM : line.setError,
                 "error setting GPIO line value");
        }
        line.output = value;
        owner.written.push_back({name, value});
    }

    void release() override
    {
        std::lock_guard lock(owner.mutex);
        Line& line = existing();
        line.holder = line.holder == this ? nullptr : line.holder;
    }

  private:
    // Lines are only ever added.
    Line& existing()
    {
        return owner.lines.at(name);
    }

    FakeGpio& owner;
    std::string name;
};

std::unique_ptr<platform::GpioLine> FakeGpio::findLine(const std::string& name)
{
    std::lock_guard lock(mutex);
    if (!lines.contains(name))
    {
        return nullptr;
    }
    return std::make_unique<Handle>(*this, name);
}

void FakeGpio::addLines(std::initializer_list<std::string> names)
{
    std::lock_guard lock(mutex);
    for (const auto& name : names)
    {
        lines[name] = Line{};
    }
}

void FakeGpio::setInput(const std::string& name, int value)
{
    std::lock_guard lock(mutex);
    lines.at(name).input = value;
}

void FakeGpio::failRequests(const std::string& name, int error, int requests)
{
    std::lock_guard lock(mutex);
    lines.at(name).requestError = error;
    lines.at(name).failingRequests = requests;
}

void FakeGpio::failAccess(const std::string& name, int getError, int setError)
{
    std::lock_guard lock(mutex);
    lines.at(name).getError = getError;
    lines.at(name).setError = setError;
}

bool FakeGpio::isRequested(const std::string& name) const
{
    std::lock_guard lock(mutex);
    return lines.at(name).holder != nullptr;
}

std::vector<GpioRequest> FakeGpio::requests(const std::string& name) const
{
    std::lock_guard lock(mutex);
    std::vector<GpioRequest> some = requested;
    std::erase_if(some, [&name](const GpioRequest& request) {
        return !name.empty() && request.line != name;
    });
    return some;
}

std::vector<int> FakeGpio::writes(const std::string& name) const
{
    std::lock_guard lock(mutex);
    std::vector<int> values;
    for (const auto& [line, value] : written)
    {
        if (name.empty() || line == name)
        {
            values.push_back(value);
        }
    }
    return values;
}

} // namespace orvane::test
