#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace ubbsim
{

// path -> service -> interfaces, as the object mapper answers.
using SubTree =
    std::map<std::string, std::map<std::string, std::vector<std::string>>>;

// What the object mapper knows of the neighbours' objects.
class ObjectIndex
{
  public:
    void add(const std::string& path, const std::string& service,
             const std::vector<std::string>& interfaces);

    // The objects strictly below `root` ("/" for all), at most `depth`
    // levels down (0 or less: any depth), with the services that implement
    // one of `interfaces` (empty: any). A service keeps all its interfaces
    // in the answer, not only the ones asked for.
    SubTree subTree(const std::string& root, int32_t depth,
                    const std::vector<std::string>& interfaces) const;

  private:
    SubTree objects;
};

} // namespace ubbsim
