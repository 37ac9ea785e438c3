#pragma once

#include <iostream>
#include <string>

#include <gtest/gtest.h>

namespace orvane::test
{

// What the call wrote to standard output. Failures reported during the
// call went into the capture as well: they are shown on stderr.
template <typename Call>
std::string console(Call call)
{
    const bool failedBefore = ::testing::Test::HasFailure();
    ::testing::internal::CaptureStdout();
    try
    {
        call();
    }
    catch (...)
    {
        // The capture is one per process: release it for the next test.
        std::cerr << ::testing::internal::GetCapturedStdout();
        throw;
    }
    std::string text = ::testing::internal::GetCapturedStdout();
    if (!failedBefore && ::testing::Test::HasFailure())
    {
        std::cerr << text;
    }
    return text;
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
