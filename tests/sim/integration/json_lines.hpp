#pragma once

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace ubbsim::test
{

// The entries of a run's .jsonl file, one per line.
inline std::vector<nlohmann::json> jsonLines(const std::filesystem::path& path)
{
    std::vector<nlohmann::json> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);)
    {
        lines.push_back(nlohmann::json::parse(line));
    }
    return lines;
}

} // namespace ubbsim::test
