// A section of metadata transfer that closes with its scope.
#pragma once

#include <orvo/annotation.h>

namespace orvo::internal {

/// Closes also when a pass throws. Null opens nothing.
class MetadataSection {
  public:
    explicit MetadataSection(TransferMetadataListener *listener) : mListener(listener) {
        if (mListener != nullptr) {
            mListener->push();
        }
    }
    ~MetadataSection() {
        if (mListener != nullptr) {
            mListener->pop();
        }
    }
    MetadataSection(const MetadataSection &) = delete;
    MetadataSection &operator=(const MetadataSection &) = delete;

  private:
    TransferMetadataListener *mListener;
};

} // namespace orvo::internal
