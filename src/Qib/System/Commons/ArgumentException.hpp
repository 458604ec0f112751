// Exception for an argument that a callee refuses.
#pragma once

#include "Qib/Exception.hpp"

namespace Qib::System::Commons
{

/// Thrown for an argument that does not fit the operation.
class QIB_EXPORT ArgumentException : public Qib::Exception
{
public:
    using Qib::Exception::Exception;
    ~ArgumentException() override;
};

} // namespace Qib::System::Commons
