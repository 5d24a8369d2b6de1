// The bounds that readers of untrusted text hold, so that time and memory stay proportional to the text. What is beyond
// one of them ends as the reader's normal failure. docs/limits.md tells them to users.
#pragma once

#include <cstddef>

namespace orvo::limits {

/// Nesting of tuples in a value's text, and levels of a signal that comes apart.
inline constexpr std::size_t kTupleDepth = 1000;
/// The count of one repeat `^n` in a tuple's text. A longer run is written as several.
inline constexpr std::size_t kRepeatCount = std::size_t{1} << 20;
/// Elements that the repeats of one value's text may make together; a repeat of two or three counts with all that its
/// element holds.
inline constexpr std::size_t kRepeatedElements = std::size_t{1} << 22;
/// Elements that the repeats of one document may make together, in values, names and paths.
inline constexpr std::size_t kDocumentRepeatedElements = std::size_t{1} << 24;
/// The same for each byte of the document, where that is more.
inline constexpr std::size_t kDocumentRepeatedElementsPerByte = 64;
/// Digits of one number's text.
inline constexpr std::size_t kNumberDigits = std::size_t{1} << 16;
/// Magnitude of the binary exponent of one number's text.
inline constexpr long kNumberExponent = 1L << 20;
/// Bytes of one attribute in design XML.
inline constexpr std::size_t kXmlAttributeBytes = std::size_t{1} << 20;
/// Bytes of the text of one "param" in design XML.
inline constexpr std::size_t kXmlTextBytes = std::size_t{1} << 26;
/// Nesting of elements in design XML, unknown ones included.
inline constexpr std::size_t kXmlDepth = 256;
/// Attributes of one element in design XML.
inline constexpr std::size_t kXmlAttributes = 64;
/// Bytes of one line in the block catalogue.
inline constexpr std::size_t kCatalogueLineBytes = std::size_t{1} << 16;
/// Instances of models whose types or domains are inferred; a short design may stand for any number of them.
inline constexpr std::size_t kTypeInstances = std::size_t{1} << 22;
/// Lanes or members into which one signal comes apart; a short type may stand for any number of them.
inline constexpr std::size_t kLanes = std::size_t{1} << 20;
/// Bytes of a pass list's text.
inline constexpr std::size_t kPassTextBytes = std::size_t{1} << 20;
/// Bytes of a pipeline file.
inline constexpr std::size_t kPipelineBytes = std::size_t{1} << 20;
/// Passes of all presets of a pipeline file, with those that they include.
inline constexpr std::size_t kPipelinePasses = std::size_t{1} << 16;

/// Turns of passes that run until nothing changes.
inline constexpr std::size_t kPassTurns = 256;

} // namespace orvo::limits
