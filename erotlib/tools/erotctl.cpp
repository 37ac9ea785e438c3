// erotctl: the eRoT of the board from the command line.
#include "erotctl_commands.hpp"
#include "result.hpp"

#include <unistd.h>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace
{

// erotlib prints its own diagnostics on standard output. They are moved to
// standard error so that the report, JSON above all, arrives alone.
FILE* reportStream()
{
    int report = dup(STDOUT_FILENO);
    if (report < 0 || dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
    {
        return stdout;
    }
    FILE* stream = fdopen(report, "w");
    return stream != nullptr ? stream : stdout;
}

} // namespace

int main(int argc, char** argv)
{
    FILE* report = reportStream();
    try
    {
        std::vector<std::string> words(argv + 1, argv + argc);
        erotctl::Outcome outcome = erotctl::run(words);
        std::fputs(outcome.out.c_str(), report);
        std::fputs(outcome.err.c_str(), stderr);
        std::fflush(report);
        return outcome.exitCode;
    }
    catch (const std::exception& error)
    {
        // Nothing trustworthy was learnt of the device.
        std::fprintf(stderr, "erotctl: %s\n", error.what());
        return erotctl::exitLinkFailure;
    }
}
