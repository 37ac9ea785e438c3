#pragma once

#include <string>
#include <vector>

// erotctl: reads and, on request, changes the state of the board's eRoT
// through erotlib. Kept apart from main() so that tests can drive it with
// a scripted device.
namespace erotctl
{

// What the process prints and returns.
struct Outcome
{
    int exitCode = 0;
    std::string out;
    std::string err;
};

// Runs one command line, the program name left out. Reports go to `out`
// (JSON with --json), failures in text mode and usage errors to `err`.
Outcome run(const std::vector<std::string>& words);

// The list of subcommands and options.
std::string helpText();

} // namespace erotctl
