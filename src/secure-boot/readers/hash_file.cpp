#include "secure-boot/hash_file.hpp"

#include "logging/log_line.hpp"
#include "utils/platform/platform.hpp"

#include <openssl/evp.h>

#include <cstdio>
#include <memory>

namespace orvane
{

namespace
{

using logging::level::ERR;

// Images are hashed in blocks of this size, so that hashing a flash image
// of any size costs the same little memory.
constexpr size_t blockSize = 4096;
// The stream below fetches this much per read from the kernel: fewer
// system calls, at a fixed cost in memory.
constexpr size_t streamBuffer = 64 * 1024;

// How a digest failure is told: HashFile prints, HashFileSha256 logs, the
// quiet form says nothing.
enum class Voice
{
    print,
    log,
    quiet,
};

void Tell(Voice voice, const char* text)
{
    if (voice == Voice::print)
    {
        std::printf("%s\n", text);
    }
    else if (voice == Voice::log)
    {
        ConsoleLog(ERR) << text;
    }
}

// The texts of one algorithm's three digest steps.
struct StepTexts
{
    const char* init;
    const char* update;
    const char* final;
};

constexpr StepTexts sha384Texts{"SHA384_Init error", "SHA384_Update error",
                                "SHA384_Final error"};
constexpr StepTexts sha256Texts{"SHA256_Init error.", "SHA256_Update error.",
                                "SHA256_Final error."};

// One running digest; each step tells its own failure.
class Digest
{
  public:
    Digest(const EVP_MD* md, const StepTexts& texts, Voice voice) :
        context(EVP_MD_CTX_new(), &EVP_MD_CTX_free), texts(texts), voice(voice)
    {
        good = context != nullptr &&
               EVP_DigestInit_ex(context.get(), md, nullptr) == 1;
        if (!good)
        {
            Tell(voice, texts.init);
        }
    }

    bool initialised() const
    {
        return good;
    }

    bool update(const void* data, size_t length)
    {
        if (EVP_DigestUpdate(context.get(), data, length) != 1)
        {
            Tell(voice, texts.update);
            return false;
        }
        return true;
    }

    bool finish(uint8_t* out)
    {
        unsigned length = 0;
        if (EVP_DigestFinal_ex(context.get(), out, &length) != 1)
        {
            Tell(voice, texts.final);
            return false;
        }
        return true;
    }

  private:
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context;
    const StepTexts& texts;
    Voice voice;
    bool good = false;
};

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File OpenBoardFile(const std::string& path, Voice voice)
{
    File file(std::fopen(platform::path(path).c_str(), "rb"), &std::fclose);
    if (!file)
    {
        if (voice != Voice::quiet)
        {
            std::printf("Failed to open file [%s]\n", path.c_str());
        }
        return file;
    }
    std::setvbuf(file.get(), nullptr, _IOFBF, streamBuffer);
    return file;
}

// The file's size; leaves it positioned at its start.
unsigned long long FileSize(std::FILE* file)
{
    std::fseek(file, 0, SEEK_END);
    const auto size = static_cast<long long>(ftello(file));
    std::fseek(file, 0, SEEK_SET);
    return size < 0 ? 0 : static_cast<unsigned long long>(size);
}

// Feeds the file from where it stands to its end into the digest; false on
// a read error or a failed update. `total` counts what was read.
bool Feed(std::FILE* file, Digest& digest, Voice voice,
          unsigned long long& total)
{
    uint8_t block[blockSize];
    total = 0;
    while (true)
    {
        const size_t count = std::fread(block, 1, sizeof(block), file);
        if (count > 0 && !digest.update(block, count))
        {
            return false;
        }
        total += count;
        if (count < sizeof(block))
        {
            break;
        }
    }
    if (std::ferror(file) != 0)
    {
        if (voice != Voice::quiet)
        {
            std::printf("Read %llu bytes from file. Failed before EOF\n",
                        total);
        }
        return false;
    }
    return true;
}

std::string HexDigits(const uint8_t* data, size_t length)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(length * 2);
    for (size_t i = 0; i < length; ++i)
    {
        text += digits[data[i] >> 4];
        text += digits[data[i] & 0x0f];
    }
    return text;
}

// The digest as a table of 16 bytes a line with their printable form.
void DumpDigest(const uint8_t* data, size_t length)
{
    const char* rule = "-------------------------------------------------------"
                       "--------------------";
    std::printf("Dump %zu bytes SHA-384 hash:\n", length);
    std::printf("%s\n", rule);
    std::printf(" Offset   00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F  "
                "0123456789ABCDEF\n");
    std::printf("--------  -----------------------------------------------  "
                "----------------\n");
    for (size_t offset = 0; offset < length; offset += 16)
    {
        char printable[17] = {};
        std::printf("%08zx ", offset);
        for (size_t i = 0; i < 16 && offset + i < length; ++i)
        {
            const uint8_t byte = data[offset + i];
            std::printf(" %02x", byte);
            printable[i] =
                (byte >= 0x20 && byte <= 0x7e) ? static_cast<char>(byte) : '.';
        }
        std::printf("  %s\n", printable);
    }
    std::printf("%s\n", rule);
}

} // namespace

void PrepareDigests()
{
    uint8_t out[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    EVP_Digest(nullptr, 0, out, &length, EVP_sha384(), nullptr);
    EVP_Digest(nullptr, 0, out, &length, EVP_sha256(), nullptr);
}

bool HashFile(const std::string& path, uint32_t minimumSize,
              std::array<uint8_t, 48>& digest)
{
    Digest sha(EVP_sha384(), sha384Texts, Voice::print);
    if (!sha.initialised())
    {
        return false;
    }
    File file = OpenBoardFile(path, Voice::print);
    if (!file)
    {
        return false;
    }
    const unsigned long long size = FileSize(file.get());
    std::printf("Real file size: [%llu]\n", size);
    if (size < minimumSize)
    {
        std::printf("Unexpected file size [%llu < %u]\n", size, minimumSize);
        return false;
    }
    unsigned long long total = 0;
    if (!Feed(file.get(), sha, Voice::print, total))
    {
        return false;
    }
    std::printf("Total %llu bytes read from file\n", total);
    if (!sha.finish(digest.data()))
    {
        return false;
    }
    if (total == 0)
    {
        return false;
    }
    DumpDigest(digest.data(), digest.size());
    std::fflush(stdout);
    return true;
}

bool HashFileQuiet(const std::string& path, std::array<uint8_t, 48>& digest)
{
    Digest sha(EVP_sha384(), sha384Texts, Voice::quiet);
    File file = OpenBoardFile(path, Voice::quiet);
    unsigned long long total = 0;
    return sha.initialised() && file &&
           Feed(file.get(), sha, Voice::quiet, total) &&
           sha.finish(digest.data()) && total > 0;
}

bool HashFileSha256(const std::string& path, std::string& text)
{
    Digest sha(EVP_sha256(), sha256Texts, Voice::log);
    if (!sha.initialised())
    {
        return false;
    }
    File file = OpenBoardFile(path, Voice::log);
    unsigned long long total = 0;
    uint8_t digest[32];
    if (!file || !Feed(file.get(), sha, Voice::log, total) ||
        !sha.finish(digest) || total == 0)
    {
        return false;
    }
    text = HexDigits(digest, sizeof(digest));
    return true;
}

std::string Sha256Text(const uint8_t* data, size_t length)
{
    Digest sha(EVP_sha256(), sha256Texts, Voice::log);
    uint8_t digest[32];
    if (!sha.initialised() || !sha.update(data, length) || !sha.finish(digest))
    {
        return {};
    }
    return HexDigits(digest, sizeof(digest));
}

} // namespace orvane
