#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <nlohmann/json.hpp>

#include "host/base/stopsignal.h"
#include "host/cli/recordingoutputs.h"
#include "host/cli/recordings/replay.h"
#include "host/input/machinefile.h"
#include "host/recording/bytes.h"
#include "tests/host/batches.h"
#include "tests/support/temporary.h"

namespace host {
namespace {

constexpr char machineText[] = R"(
name: m
maximum_acceleration: 30
actuators:
- {name: a, minimum: -2, maximum: 2, maximum_velocity: 9}
- {name: b, minimum: -1.5, maximum: 1.5, maximum_velocity: 40, value: 0.25}
- {name: c, type: 2, minimum: -2, maximum: 90}
sensors: [{name: a/Sensor, actuator: a}]
)";

/// Asks a machine for random things, and writes its registers as others would.
class Asker {
 public:
  Asker(unsigned seed, const MachineModel& machine, Engine& engine)
      : random_(seed), machine_(machine), engine_(engine) {}

  void ask(std::int64_t timeMs) {
    Desk& desk = engine_.desk();
    const std::vector<int> one{static_cast<int>(random_.below(3))};
    if (random_.chance(15)) {
      desk.request(request(timeMs), {});
    }
    if (random_.chance(4)) {
      engine_.machine().moveFromOutside(static_cast<int>(random_.below(2)),
                                        static_cast<float>(random_.between(-1.5, 1.5)));
    }
    if (random_.chance(2)) {
      desk.hold(one, {});
    } else if (random_.chance(10)) {
      desk.release({0, 1, 2}, {});
    } else if (random_.chance(2)) {
      desk.stop(one, nobody, {});
    } else if (random_.chance(2)) {
      desk.enrol({"x", one, static_cast<int>(random_.below(9))},
                 [this](const CommandAnswer& answer) { commander_ = answer.commander; });
    } else if (random_.chance(6)) {
      desk.resign(commander_, {});
    }
  }

 private:
  CommandRequest request(std::int64_t timeMs) {
    CommandRequest wanted;
    for (std::uint32_t i = 0; i <= random_.below(2); ++i) {
      ScheduledBatch& batch = wanted.batches.emplace_back();
      batch.commands = std::make_shared<CommandBatch>(randomBatch(random_, machine_, 12, 60, 200));
      batch.interpolation = static_cast<Interpolation>(random_.below(3));
      batch.isRelative = random_.chance(70);
      if (!batch.isRelative) {
        batch.momentMs = timeMs + random_.below(300);
        batch.originMs = *batch.momentMs;
      }
    }
    return wanted;
  }

  Random random_;
  const MachineModel& machine_;
  Engine& engine_;
  CommanderId commander_ = nobody;
};

/// Records so many milliseconds of machine time; counts what happened.
void live(unsigned seed, const Temporary& temporary, Tally& tally) {
  constexpr std::int64_t lifeMs = 3000;
  auto stopSignal = std::make_unique<StopSignal>();
  const MachineModel machine = readMachineFile(temporary.write("m.yaml", machineText));
  SessionOptions session;
  session.clock = Clock::simulated;
  session.waitsForSignal = true;
  session.guard = static_cast<GuardMode>(seed % 3);
  session.startTick = 0U - seed;
  session.poolName = temporary.pool();
  Plan plan;
  plan.schedule.cycleMs = 5 * (1 + seed % 2);
  Torvex torvex(machine, plan, session);
  torvex.addListener(tally);
  Recordings recordings;
  RecordOptions options;
  options.path = temporary.path("r.mcap");
  record(options, "test", machine, plan, torvex, recordings);
  Asker asker(seed, machine, torvex.engine());
  torvex.run([&](std::int64_t timeMs) {
    asker.ask(timeMs);
    if (timeMs >= lifeMs) {
      std::raise(SIGTERM);
    }
  });
  recordings.whole->finish();
  stopSignal.reset();
  const StopSignal forgetting;
}

TEST(Replay, DoesWhatRandomRunsDidAlsoWhereOthersMovedThem) {
  const unsigned long rounds = fromEnvironment("TORVEX_ROUNDS", 40);
  const Temporary temporary;
  Tally tally;
  for (unsigned seed = 1; seed <= rounds; ++seed) {
    live(seed, temporary, tally);
    const ReplayedMachine machine = readReplayedMachine(temporary.path("r.mcap"));
    const Plan plan = machine.plan();
    Torvex torvex(machine.model, plan, machine.session());
    const ReplayResult result =
        Replay(temporary.path("r.mcap"), machine, torvex).run([](std::int64_t) { return true; });
    ASSERT_FALSE(result.first) << "seed " << seed << ": " << result.first->column << " at "
                               << result.first->timeMs << " ms";
    EXPECT_TRUE(result.faults.empty());
    EXPECT_EQ(result.compared, 3000U / plan.schedule.cycleMs + 2);
  }
  for (const EventKind kind : {EventKind::external, EventKind::guarded, EventKind::held,
                               EventKind::released, EventKind::stopped, EventKind::lost}) {
    EXPECT_GT(tally.of(kind).events, 0U) << static_cast<int>(kind);
  }
}

/// What remains when a field is missing, or is another one's.
TEST(Replay, TakesNoJournalThatIsNotAsItShouldBe) {
  const Temporary temporary;
  Tally tally;
  live(3, temporary, tally);
  const ReplayedMachine machine = readReplayedMachine(temporary.path("r.mcap"));
  std::vector<Json> messages;
  RecordedRun::Handler handler;
  handler.journal = [&](const Json& message) { messages.push_back(message); };
  RecordedRun::read(temporary.path("r.mcap"), handler);
  Random random(1);
  std::size_t taken = 0;
  for (const Json& message : messages) {
    for (const auto& [name, value] : message.items()) {
      if (name == "number" || name == "actuators") {
        continue;
      }
      Json wrong = message;
      wrong.erase(name);
      EXPECT_THROW(JournalParser(machine.model).take(wrong), RecordingFault) << wrong;
      for (const Json& other : {Json(-1), Json("x"), Json(), Json::array({99}), Json(7000000000)}) {
        wrong[name] = other;
        try {
          taken += JournalParser(machine.model).take(wrong) ? 1 : 0;
        } catch (const RecordingFault&) {
        }
      }
    }
  }
  EXPECT_GT(taken, 0U);
}

TEST(Replay, TakesNoJournalThatNoEngineCanFollow) {
  const auto batch = [](const std::string& atMs, const std::string& points) {
    return R"({"kind":"batch","at_ms":)" + atMs + R"(,"batch":7,"mode":"merge","moment_ms":null,)" +
           R"("origin_ms":0,"interpolation":"linear","approaches":false,"repeat":1,)" +
           R"("actuators":[0],"points":)" + points +
           R"(,"times":[0],"values":[1],"velocities":[],"accelerations":[]})";
  };
  const auto take = [](const std::string& atMs, const std::string& number) {
    return R"({"kind":"take","at_ms":)" + atMs + R"(,"actuators":[0],"batch":)" + number + "}";
  };
  const struct {
    std::vector<std::string> before;
    std::string last;
    bool isTaken;
  } rows[] = {{{batch("5", "1"), take("5", "7")}, take("9", "7"), true},
              {{}, take("5", "0"), false},
              {{batch("5", "1")}, take("5", "8"), false},
              {{batch("5", "1")}, take("4", "7"), false},
              {{batch("5", "2")}, take("5", "7"), false},
              {{batch("5", "1"), take("9", "7")}, batch("8", "1"), false},
              {{batch("5", "1")}, R"({"kind":"take","at_ms":5,"actuators":[1],"batch":7})", false},
              {{}, R"({"kind":"cycle","at_ms":0,"machine_ms":1e15})", false},
              {{}, R"({"kind":"cycle","at_ms":0,"machine_ms":1000000000000000})", false},
              {{}, R"({"kind":"cycle","at_ms":18446744073709551615,"machine_ms":5})", false}};
  MachineModel machine;
  machine.description.actuators.resize(2);
  for (const auto& row : rows) {
    JournalParser parser(machine);
    for (const std::string& message : row.before) {
      EXPECT_NO_THROW((void)parser.take(Json::parse(message)));
    }
    const Json last = Json::parse(row.last);
    if (row.isTaken) {
      EXPECT_TRUE(parser.take(last));
    } else {
      EXPECT_THROW((void)parser.take(last), RecordingFault) << row.last;
    }
  }
}

}  // namespace
}  // namespace host
