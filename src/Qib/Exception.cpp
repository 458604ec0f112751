// The host's base exception.
#include "Qib/Exception.hpp"

namespace Qib
{

Exception::Exception(const std::string& message) : message(message) {}

Exception::~Exception() = default;

} // namespace Qib
