// What keeps blocks of each type alive when nothing reads them.
#pragma once

#include <orvo/deadblock.h>

#include <unordered_map>

namespace orvo {

class Context;
class Model;

/// Answers whether a model block's model holds something that must live, remembering each answer. The edges of the
/// model, its input and output blocks, do not count: they are there for whoever instantiates the model.
class ORVO_API ImmortalModelQuery {
  public:
    explicit ImmortalModelQuery(bool late) : mLate(late) {}
    bool isModelImmortal(const Model &model);

  private:
    bool mLate;
    std::unordered_map<const Model *, bool> mKnown;
};

} // namespace orvo

namespace orvo::internal {

/// The modules of block families, as the start-up goes through them.
enum class BlockModule { Common, IP, Prim, Pipe, Bus, Sarnet, ExtMem, Misc, FFT };

/// Registers the handlers of the module's block types.
void registerDeadBlockHandlers(Context *context, BlockModule module);

/// Immortal, but in a late pass.
class UnDeadBlockHandler final : public DeadBlockHandler {
  public:
    bool isImmortal(const Block &block) const override;
    bool isImmortal(const Block &block, bool late) const override;
};

/// Immortal in every pass.
class VeryUnDeadBlockHandler final : public DeadBlockHandler {
  public:
    bool isImmortal(const Block &block) const override;
    using DeadBlockHandler::isImmortal;
};

/// As immortal as the model that it instantiates.
class ModelDeadBlockHandler final : public DeadBlockHandler {
  public:
    bool isImmortalQuery(const Block &block, bool late, ImmortalModelQuery &query) const override;
};

/// A pin holds a type until the last passes, which keep it as long as it reads something.
class TypePinDeadBlockHandler final : public DeadBlockHandler {
  public:
    using DeadBlockHandler::isImmortal;
    bool isImmortal(const Block &block, bool late) const override;
};

/// An interface lives unless it is told to have no side effects.
class IfaceDeadBlockHandler final : public DeadBlockHandler {
  public:
    bool isImmortal(const Block &block) const override;
    using DeadBlockHandler::isImmortal;
};

/// What a host reaches over the bus lives; a constant field is only its value.
class BusDeadBlockHandler final : public DeadBlockHandler {
  public:
    bool isImmortal(const Block &block) const override;
    using DeadBlockHandler::isImmortal;
};

/// A sink lives as long as something drives it.
class DrivenSinkDeadBlockHandler : public DeadBlockHandler {
  public:
    bool isImmortal(const Block &block) const override;
    using DeadBlockHandler::isImmortal;
};
class EnableDeadBlockHandler final : public DrivenSinkDeadBlockHandler {};
class ECCDeadBlockHandler final : public DrivenSinkDeadBlockHandler {};

/// Connections to the outside of the design live.
class ConnectorDeadBlockHandler : public DeadBlockHandler {
  public:
    bool isImmortal(const Block &block) const override;
    using DeadBlockHandler::isImmortal;
};
class SarnetSTDeadBlockHandler final : public ConnectorDeadBlockHandler {};
class ExtMemDeadBlockHandler final : public ConnectorDeadBlockHandler {};
class StallValidConnectorDeadBlockHandler final : public ConnectorDeadBlockHandler {};

} // namespace orvo::internal
