// Exception for text that does not have the expected form.
#pragma once

#include "Qib/Exception.hpp"

namespace Qib::System::Commons
{

/// Thrown by parsers for malformed text.
class QIB_EXPORT InvalidFormatException : public Qib::Exception
{
public:
    using Qib::Exception::Exception;
    ~InvalidFormatException() override;
};

} // namespace Qib::System::Commons
