// Measures the daemon's image hashing on a 64 MiB file, side by side in one
// run:
//   - HashFile (SHA-384 in 4096-byte blocks) against `openssl dgst -sha384`
//     on the same file, each timed as a whole fresh process, best of N
//     (and the HashFile call alone, inside its process);
//   - the growth of the hashing process's peak resident set (VmHWM) while
//     it hashes the large file, after a small file's hash has paid for
//     what a process does once: the hash must stream, not load, the image.
//
//   hash-bench [--runs N] [--mib N]

#include "secure-boot/hash_file.hpp"
#include "utils/platform/platform.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace
{

using Steady = std::chrono::steady_clock;

class RootFiles : public orvane::platform::FileRoot
{
  public:
    std::filesystem::path resolve(std::string_view absolute) override
    {
        return absolute;
    }
};

class WallClock : public orvane::platform::Clock
{
  public:
    Steady::time_point steadyNow() override
    {
        return Steady::now();
    }
    std::chrono::system_clock::time_point wallNow() override
    {
        return std::chrono::system_clock::now();
    }
    void sleepFor(std::chrono::nanoseconds) override
    {}
};

// A field of /proc/self/status in kB.
long StatusKb(const char* field)
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
    {
        if (line.rfind(field, 0) == 0)
        {
            return std::stol(line.substr(std::string(field).size()));
        }
    }
    return -1;
}

std::string Hex(const std::array<uint8_t, 48>& digest)
{
    std::string text;
    char pair[3];
    for (uint8_t byte : digest)
    {
        std::snprintf(pair, sizeof(pair), "%02x", byte);
        text += pair;
    }
    return text;
}

// The child, a fresh process: HashFile of a small file first, which pays
// for what is done once per process (OpenSSL's set-up, the output buffer),
// then of the large one. Its own prints go to standard output, its figures
// to standard error as one line:
//   digest hwm-start hwm-warm hwm-end rss-warm rss-end call-seconds
int HashChild(const std::string& small, const std::string& large)
{
    static RootFiles files;
    static WallClock clock;
    orvane::platform::Platform seams;
    seams.files = &files;
    seams.clock = &clock;
    orvane::platform::install(seams);
    std::array<uint8_t, 48> digest{};
    const long hwmStart = StatusKb("VmHWM:");
    if (!orvane::HashFile(small, 0, digest))
    {
        return 1;
    }
    const long hwmWarm = StatusKb("VmHWM:");
    const long rssWarm = StatusKb("VmRSS:");
    const auto start = Steady::now();
    if (!orvane::HashFile(large, 0, digest))
    {
        return 1;
    }
    const double seconds =
        std::chrono::duration<double>(Steady::now() - start).count();
    const long hwmEnd = StatusKb("VmHWM:");
    const long rssEnd = StatusKb("VmRSS:");
    std::fprintf(stderr, "%s %ld %ld %ld %ld %ld %.6f\n", Hex(digest).c_str(),
                 hwmStart, hwmWarm, hwmEnd, rssWarm, rssEnd, seconds);
    return 0;
}

struct ChildFigures
{
    std::string digest;
    long hwmStart = 0;
    long hwmWarm = 0;
    long hwmEnd = 0;
    long rssWarm = 0;
    long rssEnd = 0;
    double seconds = 0;
};

ChildFigures ParseChild(const std::string& line)
{
    ChildFigures f;
    std::istringstream in(line);
    if (!(in >> f.digest >> f.hwmStart >> f.hwmWarm >> f.hwmEnd >> f.rssWarm >>
          f.rssEnd >> f.seconds))
    {
        throw std::runtime_error("unexpected child output: " + line);
    }
    return f;
}

struct Run
{
    double seconds;
    std::string output;
};

// A whole command, timed from start to end, with what it printed.
Run Timed(const std::string& command)
{
    const auto start = Steady::now();
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr)
    {
        throw std::runtime_error("cannot run " + command);
    }
    std::string output;
    std::array<char, 512> buffer;
    size_t n;
    while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0)
    {
        output.append(buffer.data(), n);
    }
    const int status = ::pclose(pipe);
    const double seconds =
        std::chrono::duration<double>(Steady::now() - start).count();
    if (status != 0)
    {
        throw std::runtime_error(command + " failed");
    }
    return {seconds, output};
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 4 && std::string(argv[1]) == "--hash-child")
    {
        return HashChild(argv[2], argv[3]);
    }
    int runs = 9;
    size_t mib = 64;
    for (int i = 1; i + 1 < argc; i += 2)
    {
        const std::string option = argv[i];
        if (option == "--runs")
        {
            runs = std::max(1, std::atoi(argv[i + 1]));
        }
        else if (option == "--mib")
        {
            mib = static_cast<size_t>(std::max(1, std::atoi(argv[i + 1])));
        }
    }

    std::string dir =
        (std::filesystem::temp_directory_path() / "hash-bench-XXXXXX").string();
    if (::mkdtemp(dir.data()) == nullptr)
    {
        std::perror("mkdtemp");
        return 1;
    }
    const std::string file = dir + "/image.bin";
    const std::string small = dir + "/small.bin";
    std::ofstream(small) << "a small image";
    {
        std::ofstream out(file, std::ios::binary);
        std::array<char, 4096> block;
        uint32_t state = 0x12345678;
        for (size_t i = 0; i < mib * 256; ++i)
        {
            for (char& c : block)
            {
                state = state * 1664525 + 1013904223;
                c = static_cast<char>(state >> 24);
            }
            out.write(block.data(), block.size());
        }
    }

    const std::string self = std::filesystem::canonical("/proc/self/exe");
    const std::string hashCommand =
        self + " --hash-child " + small + " " + file + " 2>&1 >/dev/null";
    const std::string opensslCommand = "openssl dgst -sha384 -r " + file;
    double bestHash = 1e9;
    double bestCall = 1e9;
    double bestOpenssl = 1e9;
    ChildFigures figures;
    std::string opensslDigest;
    // Interleaved, so that both see the same machine; the first pair also
    // warms the page cache.
    Timed(hashCommand);
    for (int i = 0; i < runs; ++i)
    {
        Run hash = Timed(hashCommand);
        Run openssl = Timed(opensslCommand);
        bestHash = std::min(bestHash, hash.seconds);
        bestOpenssl = std::min(bestOpenssl, openssl.seconds);
        figures = ParseChild(hash.output);
        bestCall = std::min(bestCall, figures.seconds);
        opensslDigest = openssl.output.substr(0, 96);
    }
    std::filesystem::remove_all(dir);

    const double mb = static_cast<double>(mib) * 1.048576;
    std::printf("SHA-384 of a %zu MiB file, whole processes, best of %d\n", mib,
                runs);
    std::printf("%-32s %10s %10s\n", "", "time (ms)", "MB/s");
    std::printf("%-32s %10.1f %10.0f\n", "HashFile (4096-byte blocks)",
                bestHash * 1e3, mb / bestHash);
    std::printf("%-32s %10.1f %10.0f\n", "  of which the HashFile call",
                bestCall * 1e3, mb / bestCall);
    std::printf("%-32s %10.1f %10.0f\n", "openssl dgst -sha384",
                bestOpenssl * 1e3, mb / bestOpenssl);
    std::printf("speed ratio openssl time / HashFile time: %.3f "
                "(above 1: HashFile is faster)\n",
                bestOpenssl / bestHash);
    std::printf("speed ratio openssl time / HashFile call alone: %.3f "
                "(the bench's own start costs %.1f ms)\n",
                bestOpenssl / bestCall, (bestHash - bestCall) * 1e3);
    std::printf("digests %s\n",
                opensslDigest == figures.digest ? "agree" : "DIFFER");
    std::printf(
        "peak RSS of the hashing process (VmHWM): %ld kB at start, "
        "%ld kB after a small file's hash (once per process: %+ld kB)\n",
        figures.hwmStart, figures.hwmWarm, figures.hwmWarm - figures.hwmStart);
    std::printf("peak RSS growth while hashing the %zu MiB file: %+ld kB "
                "(VmHWM %ld -> %ld kB, VmRSS %ld -> %ld kB)\n",
                mib, figures.hwmEnd - figures.hwmWarm, figures.hwmWarm,
                figures.hwmEnd, figures.rssWarm, figures.rssEnd);
    return 0;
}
