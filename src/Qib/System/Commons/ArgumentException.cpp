// Exception for an argument that a callee refuses.
#include "Qib/System/Commons/ArgumentException.hpp"

namespace Qib::System::Commons
{

ArgumentException::~ArgumentException() = default;

} // namespace Qib::System::Commons
