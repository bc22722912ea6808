// The door of a machine that another process serves, with a cycle every millisecond.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <deque>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/benchmarks.h"
#include "host/client/doorclient.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;
using host::DoorClient;
using host::Json;

constexpr int actuators = 30;

double nsSince(Clock::time_point begin) {
  return std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
}

/// `torvex serve`, from construction to destruction.
class Served {
 public:
  Served() {
    std::ofstream machine(folder_ + "/m.yaml");
    machine << "actuators:\n";
    for (int i = 0; i < actuators; ++i) {
      machine << "- {name: a" << i << ", minimum: -1, maximum: 1, maximum_velocity: 10}\n";
    }
    machine.close();
    start();
    awaitDoor();
  }
  ~Served() {
    kill(process_, SIGTERM);
    waitpid(process_, nullptr, 0);
    std::filesystem::remove_all(folder_);
  }

  Served(const Served&) = delete;
  Served& operator=(const Served&) = delete;

  [[nodiscard]] std::string socketPath() const { return folder_ + "/door/m.sock"; }

 private:
  static std::string newFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "torvex-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
      throw std::runtime_error("no folder for a machine");
    }
    return pattern;
  }

  void start() {
    std::vector<std::string> words{TORVEX_TOOL,
                                   "serve",
                                   folder_ + "/m.yaml",
                                   "--cycle",
                                   "1ms",
                                   "--guard",
                                   "off",
                                   "--socket",
                                   socketPath(),
                                   "--pool",
                                   std::filesystem::path(folder_).filename().string()};
    std::vector<char*> arguments;
    for (std::string& word : words) {
      arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&files, STDOUT_FILENO, STDERR_FILENO);
    const int failed =
        posix_spawn(&process_, TORVEX_TOOL, &files, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (failed != 0) {
      throw std::runtime_error("a machine cannot be started");
    }
  }

  void awaitDoor() const {
    const auto end = Clock::now() + std::chrono::seconds(10);
    for (;;) {
      try {
        DoorClient(socketPath()).get("/v1/health");
        return;
      } catch (const host::NoMachine&) {
        if (Clock::now() > end) {
          throw;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
    }
  }

  const std::string folder_ = newFolder();
  pid_t process_ = 0;
};

/// Of samples in ns: the counters that the table shows.
void tell(benchmark::State& state, std::vector<double> samples) {
  std::sort(samples.begin(), samples.end());
  state.counters[nsCounter] = quantile(samples, 0.5);
  state.counters["p50_us"] = quantile(samples, 0.5) / 1e3;
  state.counters["p99_us"] = quantile(samples, 0.99) / 1e3;
}

Json batchOf(int items) {
  Json points = Json::array();
  for (int i = 1; i <= items; ++i) {
    points.push_back({{"time", 0.01 * i}, {"value", 0.0001 * i}});
  }
  return {{"batches", {{{"key", "a0/Value"}, {"mode", "replace"}, {"items", points}}}}};
}

/// From the request to its answer: the command thread has handed the batch to the library by then.
void sendBatches(benchmark::State& state) {
  constexpr int requests = 2000;
  const Served served;
  DoorClient client(served.socketPath());
  const Json batch = batchOf(32);
  std::vector<double> samples;
  for ([[maybe_unused]] auto iteration : state) {
    for (int i = 0; i < requests; ++i) {
      const auto begin = Clock::now();
      client.post("/v1/batches", batch);
      samples.push_back(nsSince(begin));
    }
    state.SetIterationTime(1.0);
  }
  tell(state, std::move(samples));
}

/// What needs no turn of the machine, one after the other by one connection.
void ask(benchmark::State& state) {
  constexpr int requests = 5000;
  const Served served;
  DoorClient client(served.socketPath());
  std::vector<double> samples;
  double all = 0.0;
  for ([[maybe_unused]] auto iteration : state) {
    const auto begin = Clock::now();
    for (int i = 0; i < requests; ++i) {
      const auto sent = Clock::now();
      client.get("/v1/values?key=a0/Value");
      samples.push_back(nsSince(sent));
    }
    all = nsSince(begin);
    state.SetIterationTime(1.0);
  }
  tell(state, std::move(samples));
  state.counters["per_second"] = 1e9 * requests / all;
}

/// From the answer to a batch until each of so many listeners has read its event.
void listen(benchmark::State& state, std::size_t count) {
  constexpr int batches = 200;
  constexpr int mostMs = 1000;
  const Served served;
  DoorClient client(served.socketPath());
  std::deque<host::EventLines> listeners;
  for (std::size_t i = 0; i < count; ++i) {
    listeners.emplace_back(served.socketPath(), "/v1/events").next(mostMs);
  }
  std::vector<double> samples;
  for ([[maybe_unused]] auto iteration : state) {
    for (int i = 0; i < batches; ++i) {
      client.post("/v1/hold", Json::object());
      const auto begin = Clock::now();
      for (host::EventLines& listener : listeners) {
        if (!listener.next(mostMs)) {
          state.SkipWithError("an event is missing");
        }
      }
      samples.push_back(nsSince(begin));
    }
    state.SetIterationTime(1.0);
  }
  tell(state, std::move(samples));
}

/// How late the cycle thread wakes, with so many clients that ask without a pause.
void cycleBeside(benchmark::State& state, int clients) {
  const Served served;
  std::atomic<bool> isEnding{false};
  std::deque<std::thread> flood;
  for (int i = 0; i < clients; ++i) {
    flood.emplace_back([&] {
      DoorClient client(served.socketPath());
      while (!isEnding) {
        client.get("/v1/values");
      }
    });
  }
  for ([[maybe_unused]] auto iteration : state) {
    std::this_thread::sleep_for(std::chrono::seconds(5));
    state.SetIterationTime(1.0);
  }
  const Json health = DoorClient(served.socketPath()).get("/v1/health");
  isEnding = true;
  for (std::thread& client : flood) {
    client.join();
  }
  const Json& latency = health.at("latency_ns");
  state.counters[nsCounter] = latency.at("p99.9").get<double>();
  state.counters["p50"] = latency.at("p50").get<double>();
  state.counters["p99"] = latency.at("p99").get<double>();
  state.counters["overruns"] = health.at("overruns").get<double>();
}

}  // namespace

void addDoorBenchmarks() {
  const auto addOnce = [](const std::string& name, std::function<void(benchmark::State&)> run) {
    add("door/" + name, std::move(run), Timer::ownOnce);
  };
  addOnce("batch_of_32", sendBatches);
  addOnce("values", ask);
  addOnce("event_to_50", [](benchmark::State& state) { listen(state, 50); });
  addOnce("cycle/idle", [](benchmark::State& state) { cycleBeside(state, 0); });
  addOnce("cycle/flooded", [](benchmark::State& state) { cycleBeside(state, 1); });
}

}  // namespace bench
