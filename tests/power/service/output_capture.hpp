#pragma once

#include <string>

#include <gtest/gtest.h>

namespace orvane::test
{

// What a call wrote to standard output.
template <typename Call>
std::string console(Call call)
{
    ::testing::internal::CaptureStdout();
    call();
    return ::testing::internal::GetCapturedStdout();
}

inline size_t occurrences(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos;
         at = text.find(part, at + part.size()))
    {
        ++count;
    }
    return count;
}

} // namespace orvane::test
