#pragma once

#include "utils/platform/gpio.hpp"

#include <cerrno>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace orvane::test
{

// One request that reached a line, whether it succeeded or not.
struct GpioRequest
{
    std::string line;
    platform::GpioDirection direction;
    int defaultValue;
};

// Lines by name, as the kernel shows them to one process: a line must be
// requested before it is read or driven, only one request holds it at a
// time (others get EBUSY), and dropping a handle gives back its request.
// Lines are missing until added. Safe to use from several threads.
class FakeGpio : public platform::Gpio
{
  public:
    // For the count of requests that fail: every one of them.
    static constexpr int always = -1;

    std::unique_ptr<platform::GpioLine> findLine(
        const std::string& name) override;

    // Adds each line at level 0.
    void addLines(std::initializer_list<std::string> names);
    // The level outside drives on the line; read while it is an input.
    void setInput(const std::string& name, int value);

    // The next `requests` requests of the line fail with this errno; a
    // request that fails this way counts in requests().
    void failRequests(const std::string& name, int error,
                      int requests = always);
    // getValue and setValue throw these errnos; 0 lets them work.
    void failAccess(const std::string& name, int getError, int setError);

    bool isRequested(const std::string& name) const;
    // Of one line, or of all with an empty name.
    std::vector<GpioRequest> requests(const std::string& name = "") const;
    std::vector<int> writes(const std::string& name = "") const;

  private:
    class Handle;

    struct Line
    {
        int input = 0;
        int output = 0;
        bool isOutput = false;
        const Handle* holder = nullptr;
        int requestError = 0;
        int failingRequests = 0;
        int getError = 0;
        int setError = 0;
    };

    mutable std::mutex mutex;
    std::map<std::string, Line> lines;
    std::vector<GpioRequest> requested;
    std::vector<std::pair<std::string, int>> written;
};

} // namespace orvane::test
