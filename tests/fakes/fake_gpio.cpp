#include "fakes/fake_gpio.hpp"

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace orvane::test
{

class FakeGpio::Handle : public platform::GpioLine
{
  public:
    Handle(FakeGpio& owner, std::string name) :
        owner(owner), lineName(std::move(name))
    {}

    ~Handle() override
    {
        owner.release(*this);
    }

    void request(const std::string& consumer, platform::GpioDirection direction,
                 int flags, int defaultValue) override
    {
        owner.request(*this, consumer, direction, flags, defaultValue);
    }

    int getValue() override
    {
        return owner.getValue(*this);
    }

    void setValue(int value) override
    {
        owner.setValue(*this, value);
    }

    void release() override
    {
        owner.release(*this);
    }

    const std::string& name() const
    {
        return lineName;
    }

  private:
    FakeGpio& owner;
    std::string lineName;
};

namespace
{

[[noreturn]] void fail(int error, const char* what)
{
    throw std::system_error(error, std::system_category(), what);
}

} // namespace

std::unique_ptr<platform::GpioLine> FakeGpio::findLine(const std::string& name)
{
    std::lock_guard lock(mutex);
    if (!lines.contains(name))
    {
        return nullptr;
    }
    return std::make_unique<Handle>(*this, name);
}

void FakeGpio::addLine(const std::string& name, int value)
{
    std::lock_guard lock(mutex);
    lines[name] = Line{};
    lines[name].input = value;
}

void FakeGpio::addLines(std::initializer_list<std::string> names)
{
    for (const auto& name : names)
    {
        addLine(name);
    }
}

void FakeGpio::removeLine(const std::string& name)
{
    std::lock_guard lock(mutex);
    lines.erase(name);
}

void FakeGpio::setInput(const std::string& name, int value)
{
    std::lock_guard lock(mutex);
    existing(name).input = value;
}

void FakeGpio::setBusy(const std::string& name, int requests)
{
    failRequests(name, EBUSY, requests);
}

void FakeGpio::failRequests(const std::string& name, int error, int requests)
{
    std::lock_guard lock(mutex);
    Line& line = existing(name);
    line.requestError = error;
    line.failingRequests = requests;
}

void FakeGpio::failGet(const std::string& name, int error)
{
    std::lock_guard lock(mutex);
    existing(name).getError = error;
}

void FakeGpio::failSet(const std::string& name, int error)
{
    std::lock_guard lock(mutex);
    existing(name).setError = error;
}

int FakeGpio::value(const std::string& name) const
{
    std::lock_guard lock(mutex);
    const Line& line = existing(name);
    return line.direction == platform::GpioDirection::output ? line.output
                                                             : line.input;
}

std::optional<platform::GpioDirection> FakeGpio::direction(
    const std::string& name) const
{
    std::lock_guard lock(mutex);
    return existing(name).direction;
}

bool FakeGpio::isRequested(const std::string& name) const
{
    std::lock_guard lock(mutex);
    return existing(name).holder != nullptr;
}

std::vector<GpioRequest> FakeGpio::requests() const
{
    std::lock_guard lock(mutex);
    return requested;
}

std::vector<GpioRequest> FakeGpio::requests(const std::string& name) const
{
    std::lock_guard lock(mutex);
    std::vector<GpioRequest> out;
    for (const auto& request : requested)
    {
        if (request.line == name)
        {
            out.push_back(request);
        }
    }
    return out;
}

std::vector<GpioWrite> FakeGpio::writes() const
{
    std::lock_guard lock(mutex);
    return written;
}

std::vector<int> FakeGpio::writes(const std::string& name) const
{
    std::lock_guard lock(mutex);
    std::vector<int> out;
    for (const auto& write : written)
    {
        if (write.line == name)
        {
            out.push_back(write.value);
        }
    }
    return out;
}

void FakeGpio::clearRecords()
{
    std::lock_guard lock(mutex);
    requested.clear();
    written.clear();
}

void FakeGpio::request(const Handle& handle, const std::string& consumer,
                       platform::GpioDirection direction, int flags,
                       int defaultValue)
{
    std::lock_guard lock(mutex);
    Line& line = lineOf(handle);
    requested.push_back(
        {handle.name(), consumer, direction, flags, defaultValue});
    if (line.failingRequests != 0)
    {
        if (line.failingRequests > 0)
        {
            --line.failingRequests;
        }
        fail(line.requestError, "error requesting GPIO lines");
    }
    if (line.holder != nullptr)
    {
        fail(EBUSY, "error requesting GPIO lines");
    }
    line.holder = &handle;
    line.direction = direction;
    if (direction == platform::GpioDirection::output)
    {
        line.output = defaultValue;
    }
}

int FakeGpio::getValue(const Handle& handle)
{
    std::lock_guard lock(mutex);
    Line& line = lineOf(handle);
    if (line.holder != &handle)
    {
        fail(EPERM, "error reading GPIO line value");
    }
    if (line.getError != 0)
    {
        fail(line.getError, "error reading GPIO line value");
    }
    return line.direction == platform::GpioDirection::output ? line.output
                                                             : line.input;
}

void FakeGpio::setValue(const Handle& handle, int value)
{
    std::lock_guard lock(mutex);
    Line& line = lineOf(handle);
    if (line.holder != &handle ||
        line.direction != platform::GpioDirection::output)
    {
        fail(EPERM, "error setting GPIO line value");
    }
    if (line.setError != 0)
    {
        fail(line.setError, "error setting GPIO line value");
    }
    line.output = value;
    written.push_back({handle.name(), value});
}

void FakeGpio::release(const Handle& handle)
{
    std::lock_guard lock(mutex);
    auto found = lines.find(handle.name());
    // A line removed while a handle was out has nothing left to give back.
    if (found != lines.end() && found->second.holder == &handle)
    {
        found->second.holder = nullptr;
    }
}

FakeGpio::Line& FakeGpio::lineOf(const Handle& handle)
{
    auto found = lines.find(handle.name());
    if (found == lines.end())
    {
        // The chip went away under the handle.
        fail(ENODEV, "GPIO line is gone");
    }
    return found->second;
}

FakeGpio::Line& FakeGpio::existing(const std::string& name)
{
    auto found = lines.find(name);
    if (found == lines.end())
    {
        throw std::invalid_argument("no fake GPIO line " + name);
    }
    return found->second;
}

const FakeGpio::Line& FakeGpio::existing(const std::string& name) const
{
    auto found = lines.find(name);
    if (found == lines.end())
    {
        throw std::invalid_argument("no fake GPIO line " + name);
    }
    return found->second;
}

} // namespace orvane::test
