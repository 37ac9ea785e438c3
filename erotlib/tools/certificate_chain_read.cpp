// The certification chain: its length and bytes, shown or saved to a file.
#include "read_commands.hpp"
#include "text_format.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <erotlib/erot.hpp>
#include <fstream>

namespace erotctl
{

namespace
{

constexpr size_t dumpBytesPerLine = 32;

std::string hexDump(const uint8_t* data, size_t length)
{
    std::string text;
    for (size_t at = 0; at < length; at += dumpBytesPerLine)
    {
        text += hexBytes(data + at, std::min(dumpBytesPerLine, length - at));
        text += "\n";
    }
    return text;
}

// The chain opens with its own 16-bit length; it never exceeds the buffer
// the library hands out, but a short count is cheaper than trusting that.
size_t chainLength(const uint8_t* chain)
{
    size_t length = chain[0] | (chain[1] << 8);
    return std::min(length, erot::certificationChainBufferSize);
}

} // namespace

Result readCertChain(const Invocation& call)
{
    auto out = call.options.find("--out");
    std::ofstream file;
    if (out != call.options.end())
    {
        // Opened before the exchange so that a bad path costs no traffic.
        file.open(out->second, std::ios::binary | std::ios::trunc);
        if (!file)
        {
            return usageError("cannot write " + out->second + ": " +
                              std::strerror(errno));
        }
    }
    uint8_t* raw = nullptr;
    uint8_t status = 0;
    int r = erot::ErotGetCertificationChain(&raw, &status);
    erot::Owned<uint8_t> chain(raw);
    if (failed(r, status))
    {
        return failure(call.command, r, status);
    }
    size_t length = chainLength(chain.get());
    if (!file.is_open())
    {
        std::string hex = hexBytes(chain.get(), length);
        return succeeded(call.command,
                         "length " + std::to_string(length) + "\n" +
                             hexDump(chain.get(), length),
                         {{"length", length}, {"chain", hex}});
    }
    file.write(reinterpret_cast<const char*>(chain.get()),
               static_cast<std::streamsize>(length));
    file.close();
    if (!file)
    {
        return usageError("cannot write " + out->second);
    }
    return succeeded(call.command,
                     "length " + std::to_string(length) + ", written to " +
                         out->second + "\n",
                     {{"length", length}, {"file", out->second}});
}

} // namespace erotctl
