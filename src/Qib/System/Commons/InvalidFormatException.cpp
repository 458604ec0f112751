// Exception for text that does not have the expected form.
#include "Qib/System/Commons/InvalidFormatException.hpp"

namespace Qib::System::Commons
{

InvalidFormatException::~InvalidFormatException() = default;

} // namespace Qib::System::Commons
