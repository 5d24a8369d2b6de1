// The faces that models and wires show to the objects that compute with types and know nothing of netlists.
#pragma once

#include <orvo/api.h>

namespace orvo {

/// Something that can be asked for the type of what is inside it: a model.
class ORVO_API GenericModel {
  public:
    GenericModel() = default;
    GenericModel(const GenericModel &) = delete;
    GenericModel &operator=(const GenericModel &) = delete;
    virtual ~GenericModel();
};

/// Something that carries a signal: a wire.
class ORVO_API GenericConnection {
  public:
    GenericConnection() = default;
    GenericConnection(const GenericConnection &) = delete;
    GenericConnection &operator=(const GenericConnection &) = delete;
    virtual ~GenericConnection();
};

} // namespace orvo
