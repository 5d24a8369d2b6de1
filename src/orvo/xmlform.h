// The fixed words of design XML.
#pragma once

namespace orvo::internal {

inline constexpr const char *kXmlNamespace = "http://orvo.example/ns/2011/kelmar";
inline constexpr const char *kXmlRoot = "kelmar";
inline constexpr const char *kXmlVersion = "1.2";

} // namespace orvo::internal
