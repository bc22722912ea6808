#include "host/cli/opendoor.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "host/base/tokenfile.h"
#include "host/base/visible.h"
#include "host/server/motionfolder.h"

namespace host {
namespace {

namespace fs = std::filesystem;

/// "PORT" or "ADDRESS:PORT".
TcpAddress addressNamed(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  TcpAddress tcp;
  std::string port = text;
  if (colon != std::string::npos) {
    tcp.address = text.substr(0, colon);
    port = text.substr(colon + 1);
    if (tcp.address.size() > 2 && tcp.address.front() == '[' && tcp.address.back() == ']') {
      tcp.address = tcp.address.substr(1, tcp.address.size() - 2);
    }
  }
  const bool isNumber = !port.empty() && port.size() <= 5 &&
                        port.find_first_not_of("0123456789") == std::string::npos;
  const int number = isNumber ? std::stoi(port) : 0;
  if (number < 1 || number > 65535) {
    refuseOption("--http", "'" + text + "' is not PORT or ADDRESS:PORT");
  }
  tcp.port = static_cast<std::uint16_t>(number);
  return tcp;
}

bool isIpv6(const std::string& address) {
  return address.find(':') != std::string::npos;
}

std::string inUrl(const std::string& address) {
  return isIpv6(address) ? "[" + address + "]" : address;
}

/// Where a browser on this computer finds the door.
std::string addressOf(const std::optional<TcpAddress>& tcp) {
  if (!tcp) {
    return "";
  }
  const bool isAny = tcp->address == "0.0.0.0" || tcp->address == "::";
  return fmt::format("http://{}:{}", isAny ? "localhost" : inUrl(tcp->address), tcp->port);
}

/// Names of this computer with the port, as clients may have them.
Access accessOf(const DoorOptions& options) {
  Access access;
  access.origins = options.origins;
  if (!options.tcp) {
    return access;
  }
  const auto& [address, port] = *options.tcp;
  std::vector<std::string> names = {"localhost", "127.0.0.1", "[::1]"};
  names.push_back(inUrl(address));
  names.insert(names.end(), options.hosts.begin(), options.hosts.end());
  for (const std::string& name : names) {
    access.hosts.push_back(fmt::format("{}:{}", name, port));
    access.origins.push_back("http://" + access.hosts.back());
    if (port == 80) {
      access.hosts.push_back(name);
      access.origins.push_back("http://" + name);
    }
  }
  access.cookie = fmt::format("torvex_{}={}", port, randomToken());
  access.token = options.tokenPath.empty() ? randomToken() : readTokenFile(options.tokenPath);
  return access;
}

}  // namespace

void addDoor(CLI::App& command, DoorOptions& options) {
  addOption(command,
            {"--socket", "PATH",
             "Path of the socket (default: torvex/NAME.sock in XDG_RUNTIME_DIR, /run/user/UID or, "
             "for root, /run)",
             ""},
            options.socketPath);
  addOption(command,
            {"--http", "[ADDRESS:]PORT",
             "Also open the door on TCP, for clients with a token; the address is 127.0.0.1 unless "
             "one is given",
             ""},
            [&options](const std::string& text) { options.tcp = addressNamed(text); });
  addOption(command,
            {"--token-file", "FILE",
             "File with the token that TCP clients must send (default: a new token, in NAME.token "
             "beside the socket)",
             ""},
            options.tokenPath);
  addRepeatable(command,
                {"--host", "NAME",
                 "A further name of this computer that TCP clients may use; may be repeated", ""},
                [&options](const std::string& text) { options.hosts.push_back(text); });
  addRepeatable(
      command,
      {"--origin", "URL", "Allow pages of this origin, with the token; may be repeated", ""},
      [&options](const std::string& text) { options.origins.push_back(text); });
  addRepeatable(command,
                {"--package-path", "DIR",
                 "A folder of packages: DIR/PACKAGE/PATH is the mesh package://PACKAGE/PATH of a "
                 "URDF; may be repeated",
                 ""},
                [&options](const std::string& text) { options.packageFolders.push_back(text); });
  addOption(command,
            {"--motions", "DIR", "A folder whose motion files clients may play by name", ""},
            options.motionFolder);
  addNeed(command, {"--token-file", "--host"}, "--http");
}

void addServeFlag(CLI::App& command, const char* what, bool& isServing, DoorOptions& options) {
  addFlag(command, "--serve", isServing, what);
  addDoor(command, options);
  addNeed(
      command,
      {"--socket", "--http", "--token-file", "--host", "--origin", "--package-path", "--motions"},
      "--serve");
}

namespace {

/// Whether a file is there that clients may play by the name that it has in the folder.
bool isMotionIn(const std::string& folder, const std::string& path) {
  std::error_code none;
  const fs::path file = fs::weakly_canonical(path, none);
  const fs::path below = fs::weakly_canonical(folder, none);
  return isMotionName(file) && fs::exists(file, none) &&
         std::mismatch(below.begin(), below.end(), file.begin(), file.end()).first == below.end();
}

}  // namespace

void addFiles(const DoorOptions& options, const std::string& machineName, NamedFiles& files) {
  if (!options.motionFolder.empty()) {
    for (const NamedOutput& output : files.outputs) {
      if (isMotionIn(options.motionFolder, output.path)) {
        files.inputs.push_back(output.path);
      }
    }
  }
  fs::path socket = options.socketPath.empty() ? defaultDoorPath(machineName) : options.socketPath;
  std::vector<NamedOutput> ofDoor = {{socket, "socket"},
                                     {socket.replace_extension(".lock"), "lock of the socket"}};
  if (options.tokenPath.empty()) {
    ofDoor.push_back({socket.replace_extension(".token"), "token"});
  } else {
    files.inputs.push_back(options.tokenPath);
  }
  files.outputs.insert(files.outputs.begin(), ofDoor.begin(), ofDoor.end());
}

OpenDoor::OpenDoor(const MachineModel& machine, Torvex& torvex, const DoorOptions& options,
                   const SessionOptions& session, const NamedFiles& files)
    : torvex_(torvex),
      options_(options),
      address_(addressOf(options.tcp)),
      access_(accessOf(options)),
      place_(options.socketPath.empty() ? defaultDoorPath(machine.name) : options.socketPath),
      serviceOptions_{options.isStrict,
                      session.guard,
                      session.poolName,
                      session.preferenceDirectory,
                      address_,
                      access_.cookie,
                      options.packageFolders,
                      options.motionFolder,
                      files},
      service_(machine, torvex, serviceOptions_),
      door_(place_.listen().release(), options.tcp, access_, service_),
      tokenPath_(options.tokenPath) {
  if (options.tcp && tokenPath_.empty()) {
    tokenPath_ = place_.writeToken(access_.token);
  }
}

std::string OpenDoor::announcement() {
  std::string text = fmt::format("door     {}\n", visible(place_.path()));
  if (options_.tcp) {
    text += fmt::format("         {}, token in {}\npage     {}\n", address_, visible(tokenPath_),
                        service_.newLink());
  }
  return text;
}

void OpenDoor::open() {
  Desk& desk = torvex_.engine().desk();
  desk.setReader([this](std::uint64_t stall) { door_.askToRead(stall); });
  door_.open([&desk](std::uint64_t stall) { desk.haveReadAll(stall); });
}

}  // namespace host
