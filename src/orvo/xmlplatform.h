// The XML platform, started and stopped once for all who use it.
#pragma once

namespace orvo::internal {

/// Keeps the XML platform up for its lifetime. Xerces-C counts its users without a lock, and contexts on several
/// threads read and write at once, so the counting is locked here.
class XMLPlatform {
  public:
    XMLPlatform();
    ~XMLPlatform();
    XMLPlatform(const XMLPlatform &) = delete;
    XMLPlatform &operator=(const XMLPlatform &) = delete;
};

} // namespace orvo::internal
