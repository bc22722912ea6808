#include "bridge/configuration.h"

#include <cctype>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace bridge {
namespace {

std::string replaced(std::string text, char sign, const std::string& by) {
  for (std::size_t at = text.find(sign); at != std::string::npos; at = text.find(sign, at)) {
    text.replace(at, 1, by);
    at += by.size();
  }
  return text;
}

/// Who hears a topic could not tell which of the two speaks.
void refuseSharedTopics(const Configuration& configuration) {
  std::map<std::string, std::string> used;
  for (const std::string& machine : configuration.machines) {
    for (const char* const kind : kinds) {
      const std::string topic = topicOf(configuration, machine, kind);
      const std::string user = std::string(kind) + " of " + machine;
      if (const auto [other, isNew] = used.emplace(topic, user); !isNew && !topic.empty()) {
        throw std::runtime_error(other->second + " and " + user + " would both be the topic " +
                                 topic.substr(topicPrefix.size()) +
                                 "; --topics KIND=TOPIC gives other names");
      }
    }
  }
}

}  // namespace

Configuration readConfiguration(const std::string& argument) {
  try {
    const auto json = nlohmann::json::parse(argument);
    Configuration configuration;
    json.at("machines").get_to(configuration.machines);
    json.at("domain").get_to(configuration.domain);
    json.at("interface").get_to(configuration.interface);
    json.at("rate").get_to(configuration.rateHz);
    json.at("horizon").get_to(configuration.horizonSeconds);
    json.at("sensor_data").get_to(configuration.statesAreSensorData);
    json.at("topics").get_to(configuration.topics);
    refuseSharedTopics(configuration);
    return configuration;
  } catch (const nlohmann::json::exception&) {
    throw std::runtime_error("this program is started by 'torvex bridge ros2'");
  }
}

std::string nameInTopics(const std::string& machine) {
  const std::size_t folder = machine.rfind('/');
  const bool isPath = folder != std::string::npos;
  std::string name = isPath ? machine.substr(folder + 1) : machine;
  const std::size_t ending = name.rfind(".sock");
  name = isPath && ending != std::string::npos ? name.substr(0, ending) : name;
  for (char& character : name) {
    if (std::isalnum(static_cast<unsigned char>(character)) == 0) {
      character = '_';
    }
  }
  const bool mayBegin = !name.empty() && std::isdigit(static_cast<unsigned char>(name[0])) == 0;
  return mayBegin ? name : "_" + name;
}

std::string topicOf(const Configuration& configuration, const std::string& machine,
                    const std::string& kind) {
  const bool isShared = kind == "robot_description" && configuration.machines.size() == 1;
  std::string topic = isShared ? kind : "*/" + kind;
  for (const std::string& given : configuration.topics) {
    if (given.rfind(kind + "=", 0) == 0) {
      topic = given.substr(kind.size() + 1);
    }
  }
  return topic.empty() ? ""
                       : std::string(topicPrefix) + replaced(topic, '*', nameInTopics(machine));
}

}  // namespace bridge
