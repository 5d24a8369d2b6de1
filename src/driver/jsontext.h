// JSON as the driver writes it: members in the order in which they were set, two blanks of indent, and bytes that are
// no UTF-8 replaced, since names in a design may be any bytes.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace orvo::driver {

using Json = nlohmann::ordered_json;

/// A document with a new line at its end.
inline std::string documentText(const Json &json) {
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

/// On one line, without a new line.
inline std::string lineText(const Json &json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

} // namespace orvo::driver
