#pragma once

#include <string>

namespace host {

constexpr char devicePrefix[] = "Device/DeviceList/";
constexpr char subDevicePrefix[] = "Device/SubDeviceList/";

/// The key that a full or bare name means, by the rule of the library's name
/// table: a bare one is a sub-device's.
std::string fullKey(const std::string& name);

/// The bare name that means this key; the key itself where there is none.
std::string bareKey(const std::string& key);

}  // namespace host
