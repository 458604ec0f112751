// The message a failing action throws, for tests of error texts.
#pragma once

#include "Qib/Exception.hpp"

#include <gtest/gtest.h>

#include <string>

namespace VantrelTest
{

/// The message of the Qib::Exception that `action` throws; fails the test when it throws none.
template <typename Action>
std::string ErrorOf(Action action)
{
    try
    {
        action();
    }
    catch (const Qib::Exception& exception)
    {
        return exception.GetMessage();
    }
    ADD_FAILURE() << "no Qib::Exception was thrown";
    return {};
}

} // namespace VantrelTest
