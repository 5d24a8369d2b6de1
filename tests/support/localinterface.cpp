// The other interface.
#include "support/localinterface.h"

#include <orvo/blockclass.h>

namespace orvo {
namespace {

class LocalInterface : public BlockHandler {};

} // namespace

const std::type_info &test::otherLocalInterface() { return typeid(LocalInterface); }

} // namespace orvo
