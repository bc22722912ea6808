#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>

#include "host/base/values.h"
#include "host/base/visible.h"
#include "host/engine/journal.h"
#include "host/recording/bytes.h"

// The words of a journal, for who writes it and who reads it.
namespace host::journal {

using Kind = JournalEntry::Kind;

template <typename Value>
struct Named {
  const char* name;
  Value value;
};

inline constexpr Named<Kind> kinds[] = {
    {"nodes", Kind::nodes}, {"batch", Kind::batch},      {"take", Kind::take},
    {"stop", Kind::stop},   {"moved", Kind::moved},      {"clear", Kind::clear},
    {"freed", Kind::freed}, {"hold", Kind::hold},        {"release", Kind::release},
    {"lost", Kind::lose},   {"registered", Kind::enrol}, {"write", Kind::write},
    {"cycle", Kind::cycle}, {"gap", Kind::gap}};
inline constexpr Named<Interpolation> interpolations[] = {{"message", Interpolation::message},
                                                          {"linear", Interpolation::linear},
                                                          {"smooth", Interpolation::smooth}};
inline constexpr Named<TimedCommand::commandType> modes[] = {
    {"merge", TimedCommand::MERGE},
    {"replace", TimedCommand::REPLACE},
    {"clear_after", TimedCommand::CLEAR_AFTER},
    {"clear_before", TimedCommand::CLEAR_BEFORE}};
inline constexpr Named<std::uint32_t> stoppers[] = {{"end", Event::byHost},
                                                    {"stop", Event::byStop},
                                                    {"hold", Event::byHold},
                                                    {"commander", Event::byCommander}};
inline constexpr Named<LossRule> lossRules[] = {{"stop", LossRule::stop},
                                                {"run_out", LossRule::runOut}};
inline constexpr Named<Fault> losses[] = {{"expired", Fault::expired},
                                          {"resigned", Fault::resigned},
                                          {"disconnected", Fault::disconnected},
                                          {"owned", Fault::owned}};

template <typename Value, std::size_t count>
const char* nameOf(const Named<Value> (&all)[count], Value value) {
  const auto* const found = std::find_if(
      std::begin(all), std::end(all), [&](const Named<Value>& one) { return one.value == value; });
  return found == std::end(all) ? "" : found->name;
}

[[noreturn]] inline void fail(const std::string& what) {
  throw RecordingFault("the journal is not as it should be: " + what);
}

template <typename Value, std::size_t count>
Value valueNamed(const Named<Value> (&all)[count], const std::string& name) {
  const auto* const found = std::find_if(std::begin(all), std::end(all),
                                         [&](const Named<Value>& one) { return name == one.name; });
  if (found == std::end(all)) {
    fail("'" + visible(name) + "'");
  }
  return found->value;
}

inline bool isReal(const simulation::Actuator& actuator) {
  return valueType(actuator.typeCode) == ValueType::real;
}

}  // namespace host::journal
