// A handler interface that is local to another file and has the name of one that is local to a test.
#pragma once

#include <typeinfo>

namespace orvo::test {

const std::type_info &otherLocalInterface();

} // namespace orvo::test
