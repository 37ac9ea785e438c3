#include "utils/gpio_lines.hpp"

#include "logging/log_line.hpp"
#include "utils/platform/platform.hpp"

#include <cerrno>
#include <exception>
#include <iostream>
#include <memory>
#include <system_error>

namespace orvane
{

namespace
{

using logging::level::ERR;
using logging::level::WARNING;

// Another consumer may hold a line for a moment: a read waits for it rather
// than failing the sequence that asked.
constexpr int readRequestAttempts = 10'000;
constexpr unsigned busyWaitMicroseconds = 10;

// The journal entry keeps the location it has always carried, so that
// existing journal queries on it still match.
constexpr int readJournalLine = 811;

// Requests the line as input, waiting out EBUSY. False when the request
// could not be made; the failure is then already reported.
bool requestForRead(platform::GpioLine& line, const std::string& lineName)
{
    for (int attempt = 1;; ++attempt)
    {
        try
        {
            line.request("GetGPIOValue", platform::GpioDirection::input, 0, 0);
            return true;
        }
        catch (const std::system_error& e)
        {
            if (e.code().value() == EBUSY && attempt < readRequestAttempts)
            {
                platform::sleepMicroseconds(busyWaitMicroseconds);
                continue;
            }
            platform::journal().print(
                3, __FILE__, readJournalLine, "GetGPIOValue",
                "Error setting gpio as Input " + lineName);
            line.release();
            std::cout << "error is: " << e.what() << std::endl;
            return false;
        }
    }
}

} // namespace

bool GetGPIOValue(const std::string& lineName, int& value)
{
    try
    {
        auto line = platform::gpio().findLine(lineName);
        if (!line)
        {
            ConsoleLog(WARNING) << "Can't find line" << lineName;
            return false;
        }
        if (!requestForRead(*line, lineName))
        {
            return false;
        }
        // Stored only once the line is let go, so a failure leaves the
        // caller's value untouched.
        int read = line->getValue();
        line->release();
        value = read;
        return true;
    }
    catch (const std::exception& e)
    {
        ConsoleLog(ERR) << "Fail to get value" << e.what();
        return false;
    }
}

bool SetGPIOOutput(const std::string& lineName, int value)
{
    std::unique_ptr<platform::GpioLine> line;
    try
    {
        line = platform::gpio().findLine(lineName);
    }
    catch (const std::exception& e)
    {
        ConsoleLog(ERR) << "Failed to find the " << lineName
                        << " line: " << e.what();
        return false;
    }
    if (!line)
    {
        ConsoleLog(WARNING) << "Failed to find the " << lineName << " line.";
        return false;
    }

    try
    {
        line->request("SetGPIOOutput", platform::GpioDirection::output, 0,
                      value);
    }
    catch (const std::exception& e)
    {
        ConsoleLog(ERR) << "Error setting gpio as Output: " << lineName
                        << e.what();
        return false;
    }

    try
    {
        line->setValue(value);
    }
    catch (const std::exception& e)
    {
        ConsoleLog(ERR) << "Failed to set value for " << lineName << e.what();
        return false;
    }
    // No release: the request ends with the handle.
    return true;
}

} // namespace orvane
