#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "host/base/values.h"
#include "host/base/visible.h"
#include "host/base/words.h"
#include "host/engine/journal.h"
#include "host/recording/bytes.h"

// The words of a journal, for who writes it and who reads it.
namespace host::journal {

using Kind = JournalEntry::Kind;

inline constexpr Word<Kind> kinds[] = {
    {"nodes", Kind::nodes}, {"batch", Kind::batch},      {"take", Kind::take},
    {"stop", Kind::stop},   {"moved", Kind::moved},      {"clear", Kind::clear},
    {"freed", Kind::freed}, {"hold", Kind::hold},        {"release", Kind::release},
    {"lost", Kind::lose},   {"registered", Kind::enrol}, {"write", Kind::write},
    {"cycle", Kind::cycle}, {"gap", Kind::gap}};
inline constexpr Word<std::uint32_t> stoppers[] = {{"end", Event::byHost},
                                                   {"stop", Event::byStop},
                                                   {"hold", Event::byHold},
                                                   {"commander", Event::byCommander}};
inline constexpr Word<Fault> losses[] = {{"expired", Fault::expired},
                                         {"resigned", Fault::resigned},
                                         {"disconnected", Fault::disconnected},
                                         {"owned", Fault::owned}};

[[noreturn]] inline void fail(const std::string& what) {
  throw RecordingFault("the journal is not as it should be: " + what);
}

template <typename Value, std::size_t count>
Value valueNamed(const Word<Value> (&words)[count], const std::string& name) {
  const std::optional<Value> value = valueOf(words, name);
  if (!value) {
    fail("'" + visible(name) + "'");
  }
  return *value;
}

inline bool isReal(const simulation::Actuator& actuator) {
  return valueType(actuator.typeCode) == ValueType::real;
}

}  // namespace host::journal
