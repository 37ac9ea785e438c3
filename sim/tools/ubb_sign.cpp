// ubb-sign: signed image and AHDR pairs for the virtual board's eRoT.
//
//   ubb-sign keygen KEY.pem
//   ubb-sign pubkey KEY.pem          the public key as hex DER, as the
//                                    eRoT state file lists trusted keys
//   ubb-sign sign --component ID|NAME --version V --svn N --key KEY.pem
//                 [--key-index N] [--details TEXT] [--customer N]
//                 [--variant N] [--payload FILE | --size BYTES]
//                 [--header-only] --out STEM
//
// `sign` writes STEM.bin and STEM.ahdr. Without a payload file the image
// is generated from the component and version, so that the same arguments
// give the same image.

#include "erot/ec_key.hpp"
#include "erot/fw_components.hpp"
#include "erot/image_signer.hpp"
#include "erot/state_json.hpp"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using namespace ubbsim::erot;

const char* usage =
    "usage: ubb-sign keygen KEY.pem\n"
    "       ubb-sign pubkey KEY.pem\n"
    "       ubb-sign sign --component ID|NAME --version V --svn N --key "
    "KEY.pem\n"
    "                [--key-index N] [--details TEXT] [--customer N] "
    "[--variant N]\n"
    "                [--payload FILE | --size BYTES] [--header-only] --out "
    "STEM\n";

constexpr size_t defaultSize = 8192;

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
    {
        throw std::runtime_error(path + ": cannot be read");
    }
    return {std::istreambuf_iterator<char>(in),
            std::istreambuf_iterator<char>()};
}

uint32_t number(const std::string& text, uint32_t max)
{
    size_t used = 0;
    unsigned long value = 0;
    try
    {
        value = std::stoul(text, &used, 0);
    }
    catch (const std::logic_error&)
    {
        used = 0;
    }
    if (used == 0 || used != text.size() || value > max)
    {
        throw std::invalid_argument("not a number up to " +
                                    std::to_string(max) + ": " + text);
    }
    return static_cast<uint32_t>(value);
}

uint16_t componentId(const std::string& text)
{
    if (auto component = componentByName(text))
    {
        return component->id;
    }
    return static_cast<uint16_t>(number(text, 0xFFFF));
}

// --name value pairs; flags without a value map to "".
std::map<std::string, std::string> options(int argc, char** argv, int from)
{
    std::map<std::string, std::string> given;
    for (int i = from; i < argc; ++i)
    {
        std::string flag = argv[i];
        if (!flag.starts_with("--"))
        {
            throw std::invalid_argument("unexpected " + flag);
        }
        bool bare = flag == "--header-only";
        if (!bare && i + 1 >= argc)
        {
            throw std::invalid_argument(flag + " needs a value");
        }
        given[flag.substr(2)] = bare ? "" : argv[++i];
    }
    return given;
}

std::string required(const std::map<std::string, std::string>& given,
                     const std::string& name)
{
    auto found = given.find(name);
    if (found == given.end())
    {
        throw std::invalid_argument("--" + name + " is required");
    }
    return found->second;
}

std::string optional(const std::map<std::string, std::string>& given,
                     const std::string& name, const std::string& fallback)
{
    auto found = given.find(name);
    return found == given.end() ? fallback : found->second;
}

std::vector<uint8_t> payloadFor(const std::map<std::string, std::string>& given,
                                const AhdrFields& fields)
{
    if (given.contains("payload"))
    {
        std::string data = readFile(given.at("payload"));
        return {data.begin(), data.end()};
    }
    size_t size = number(optional(given, "size", std::to_string(defaultSize)),
                         0x7FFFFFFF);
    return generatedPayload(fields.componentId, fields.version, size);
}

int sign(const std::map<std::string, std::string>& given)
{
    AhdrFields fields;
    fields.componentId = componentId(required(given, "component"));
    fields.version = number(required(given, "version"), 0xFFFFFFFF);
    fields.svn = number(required(given, "svn"), 0xFFFFFFFF);
    fields.customerId =
        static_cast<uint16_t>(number(optional(given, "customer", "0"), 0xFFFF));
    fields.variantId =
        static_cast<uint16_t>(number(optional(given, "variant", "0"), 0xFFFF));
    fields.details = optional(given, "details", "");
    if (fields.details.size() > detailsSize)
    {
        throw std::invalid_argument("--details holds at most 250 bytes");
    }
    EcKey key = EcKey::fromPrivatePem(readFile(required(given, "key")));
    auto index =
        static_cast<uint8_t>(number(optional(given, "key-index", "0"), 0xFF));
    SignedImage image = signImage(fields, payloadFor(given, fields), key, index,
                                  given.contains("header-only"));
    writeImagePair(required(given, "out"), image);
    std::cout << required(given, "out") << ".bin, .ahdr: component 0x"
              << std::hex << fields.componentId << ", version 0x"
              << fields.version << std::dec << ", SVN " << fields.svn
              << ", key " << static_cast<int>(index) << "\n";
    return 0;
}

int run(int argc, char** argv)
{
    std::string command = argc > 1 ? argv[1] : "";
    if ((command == "keygen" || command == "pubkey") && argc == 3)
    {
        if (command == "keygen")
        {
            std::ofstream(argv[2]) << EcKey::generate().privatePem();
            return 0;
        }
        EcKey key = EcKey::fromPrivatePem(readFile(argv[2]));
        std::cout << hex(key.publicDer()) << "\n";
        return 0;
    }
    if (command == "sign")
    {
        return sign(options(argc, argv, 2));
    }
    throw std::invalid_argument("unknown command " + command);
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        return run(argc, argv);
    }
    catch (const std::invalid_argument& error)
    {
        std::cerr << "ubb-sign: " << error.what() << "\n" << usage;
        return 2;
    }
    catch (const std::exception& error)
    {
        std::cerr << "ubb-sign: " << error.what() << "\n";
        return 1;
    }
}
