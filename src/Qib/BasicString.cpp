// The host string type's empty constant.
#include "Qib/BasicString.hpp"

namespace Qib
{

const BasicString BasicString::Empty;

} // namespace Qib
