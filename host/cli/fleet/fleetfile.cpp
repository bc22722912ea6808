#include "host/cli/fleet/fleetfile.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <sys/un.h>

#include <array>
#include <charconv>
#include <filesystem>
#include <set>

#include "host/base/doorfolder.h"
#include "host/base/textfile.h"
#include "host/base/tokenfile.h"
#include "host/base/visible.h"
#include "host/input/document.h"

namespace host {
namespace {

constexpr std::size_t mostMachines = 1000;

std::string besideFile(const Document& document, const std::string& path) {
  return (std::filesystem::path(document.path()).parent_path() / path).lexically_normal().string();
}

bool isIpAddress(const std::string& text) {
  std::array<unsigned char, sizeof(in6_addr)> bytes{};
  return inet_pton(AF_INET, text.c_str(), bytes.data()) == 1 ||
         inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1;
}

/// ADDRESS:PORT; no name, since nobody knows how long it takes to look one up.
void readTcp(const Document& document, const Node& node, DoorAddress& door) {
  const std::string text = document.name(node, "tcp");
  const std::size_t colon = text.rfind(':');
  const std::string port = colon == std::string::npos ? "" : text.substr(colon + 1);
  door.host = text.substr(0, colon);
  // Without brackets the last part of an address could be the port.
  const bool hasBrackets =
      door.host.size() > 2 && door.host.front() == '[' && door.host.back() == ']';
  if (hasBrackets) {
    door.host = door.host.substr(1, door.host.size() - 2);
  }
  const auto [end, failure] = std::from_chars(port.data(), port.data() + port.size(), door.port);
  if (failure != std::errc() || end != port.data() + port.size() || door.port == 0 ||
      !isIpAddress(door.host) || hasBrackets != (door.host.find(':') != std::string::npos)) {
    document.fail(node, fmt::format("tcp must be an IP address and a port, such as "
                                    "192.168.7.2:8080 or [fd00::2]:8080, not '{}'",
                                    visible(text)));
  }
}

std::string readToken(const Document& document, const Node& node) {
  const std::string path = besideFile(document, document.name(node, "token_file"));
  try {
    return readTokenFile(path);
  } catch (const UserError& error) {
    document.fail(
        node, fmt::format("the token file '{}' {}", visible(path), error.entries().front().text));
  }
}

void readDoor(const Document& document, const Document::Fields& fields, const Node& node,
              FleetMachine& machine) {
  document.field(fields, "socket", [&](const Node& path) {
    machine.door.socketPath = besideFile(document, document.name(path, "socket"));
  });
  document.field(fields, "tcp",
                 [&](const Node& address) { readTcp(document, address, machine.door); });
  document.field(fields, "token_file",
                 [&](const Node& path) { machine.door.token = readToken(document, path); });
  const bool isTcp = fields.count("tcp") != 0;
  if (isTcp && fields.count("socket") != 0) {
    document.report(fields.at("socket"), "a machine has one door: either socket or tcp");
  }
  if (isTcp != (fields.count("token_file") != 0)) {
    document.report(isTcp ? node : fields.at("token_file"),
                    isTcp ? "tcp needs token_file, the file with the token of the machine's door"
                          : "token_file is only for tcp");
  }
  if (!isTcp && machine.door.socketPath.empty()) {
    machine.door.socketPath = fmt::format("{}/{}.sock", doorFolder(), machine.name);
  }
  if (machine.door.socketPath.size() >= sizeof(sockaddr_un::sun_path)) {
    document.report(node,
                    fmt::format("the path of its socket has {} characters; at most {} work",
                                machine.door.socketPath.size(), sizeof(sockaddr_un::sun_path) - 1));
  }
}

std::vector<std::string> readNames(const Document& document, const Node& node, const char* what) {
  if (!node.isList() || node.size() == 0) {
    document.fail(node, fmt::format("{} must be a list of at least one", what));
  }
  std::vector<std::string> names;
  for (const Node& entry : node.items()) {
    names.push_back(document.name(entry, what));
  }
  return names;
}

void refuseSameDoor(const Document& document, const Node& node, const FleetMachine& machine,
                    const Fleet& fleet) {
  const std::string door = machine.door.text();
  for (const FleetMachine& each : fleet.machines) {
    if (each.door.text() == door) {
      document.fail(node, fmt::format("'{}' and '{}' are the same machine, with the door {}",
                                      visible(each.name), visible(machine.name), visible(door)));
    }
  }
}

void readMachine(const Document& document, const Node& node, std::set<std::string>& known,
                 Fleet& fleet) {
  const Document::Fields fields = document.fields(
      node, "a machine of a fleet", {"name", "socket", "tcp", "token_file", "axes", "motions"});
  FleetMachine machine;
  const Node& name = document.required(fields, node, "name");
  machine.name = document.name(name, "name");
  if (machine.name.find_first_of("/=") != std::string::npos) {
    document.fail(name, "the name of a machine must not contain '/' or '='");
  }
  if (!known.insert(machine.name).second) {
    document.fail(name, fmt::format("a second machine is named '{}'", visible(machine.name)));
  }
  if (document.attempt([&] { readDoor(document, fields, node, machine); })) {
    refuseSameDoor(document, node, machine, fleet);
  }
  document.field(fields, "axes",
                 [&](const Node& list) { machine.axes = readNames(document, list, "axes"); });
  document.field(fields, "motions", [&](const Node& list) {
    for (const std::string& motion : readNames(document, list, "motions")) {
      machine.motions.push_back(besideFile(document, motion));
    }
  });
  fleet.machines.push_back(std::move(machine));
}

void readMachines(const Document& document, const Node& node, Fleet& fleet) {
  if (!node.isList() || node.size() == 0) {
    document.fail(node, "machines must be a list of at least one machine");
  }
  if (node.size() > mostMachines) {
    document.stop(node, fmt::format("a fleet has at most {} machines", mostMachines));
  }
  std::set<std::string> known;
  for (const Node& entry : node.items()) {
    document.attempt([&] { readMachine(document, entry, known, fleet); });
  }
}

}  // namespace

Fleet readFleetFile(const std::string& path) {
  constexpr std::size_t mostBytes = std::size_t{1} << 20;
  Fleet fleet;
  ErrorCollector errors;
  errors.attempt([&] {
    const std::string text = readFile(path, mostBytes);
    const Document document(path, text, errors);
    const Document::Fields fields =
        document.fields(document.root(), "a fleet file", {"machines", "all_or_none"});
    document.requiredField(fields, document.root(), "machines",
                           [&](const Node& node) { readMachines(document, node, fleet); });
    document.field(fields, "all_or_none", [&](const Node& node) {
      fleet.allOrNone = document.truth(node, "all_or_none");
    });
  });
  errors.throwIfAny();
  return fleet;
}

}  // namespace host
