// The door of a machine that another process serves, with a cycle every millisecond.

#include <atomic>
#include <chrono>
#include <deque>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "bench/benchmarks.h"
#include "bench/served.h"
#include "host/client/doorclient.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;
using host::DoorClient;
using host::Json;

constexpr int actuators = 30;

std::string machineText() {
  std::string text = "actuators:\n";
  for (int i = 0; i < actuators; ++i) {
    text += "- {name: a" + std::to_string(i) + ", minimum: -1, maximum: 1, maximum_velocity: 10}\n";
  }
  return text;
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
  const Served served(machineText());
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
  countLatencies(state, std::move(samples));
}

/// What needs no turn of the machine, one after the other by one connection.
void ask(benchmark::State& state) {
  constexpr int requests = 5000;
  const Served served(machineText());
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
  countLatencies(state, std::move(samples));
  state.counters["per_second"] = 1e9 * requests / all;
}

/// From the answer to a batch until each of so many listeners has read its event.
void listen(benchmark::State& state, std::size_t count) {
  constexpr int batches = 200;
  constexpr int mostMs = 1000;
  const Served served(machineText());
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
  countLatencies(state, std::move(samples));
}

/// How late the cycle thread wakes, with so many clients that ask without a pause.
void cycleBeside(benchmark::State& state, int clients) {
  const Served served(machineText());
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
