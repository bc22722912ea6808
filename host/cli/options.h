#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/cli/arguments.h"
#include "host/results/runoptions.h"

namespace host {

/// A number of the options' own, positive and finite.
double positiveNumber(const std::string& option, const std::string& text);
/// A whole number above 0.
std::size_t count(const std::string& option, const std::string& text);
/// Decimal, or hexadecimal behind 0x.
std::uint32_t tick(const std::string& text);

void addMachine(CLI::App& command, std::string& path);
void addMotions(CLI::App& command, std::vector<std::string>& paths, MotionOptions& options);
void addCycle(CLI::App& command, std::uint32_t& cycleMs);
void addTiming(CLI::App& command, Timing& timing);
void addLate(CLI::App& command, Late& late);
void addGuard(CLI::App& command, GuardMode& guard);
void addPreferenceDirectory(CLI::App& command, std::string& path);
/// What the thread of the cycle asks of the machine, in real time.
void addCycleScheduling(CLI::App& command, ThreadScheduling& scheduling);
void addPool(CLI::App& command, const char* help, std::string& name);
void addPoolMode(CLI::App& command, std::optional<std::uint32_t>& mode);

}  // namespace host
