#pragma once

#include <dds/dds.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "bridge/configuration.h"
#include "bridge/interface.h"

namespace bridge {

/// An entity of DDS, which goes with the object.
class Entity {
 public:
  /// Throws `std::runtime_error` when `handle` is an error, which was to be `what`.
  Entity(dds_entity_t handle, const char* what);
  ~Entity();

  Entity(const Entity&) = delete;
  Entity& operator=(const Entity&) = delete;

  [[nodiscard]] dds_entity_t handle() const { return handle_; }

 private:
  dds_entity_t handle_;
};

/// The settings of a domain, as the text that DDS reads.
std::string domainText(const Configuration& configuration);

/// The user data of a bridge's readers and writers begins so; what follows says which bridge it is.
constexpr std::string_view bridgeMark = "torvex-bridge ";

/// How a topic is told, in the words of ROS 2.
enum class Delivery {
  /// Reliable, volatile, the last 10.
  standard,
  /// Best effort, volatile, the last 5.
  sensorData,
  /// Reliable, transient local, the last one.
  latched
};

/// A domain of DDS on one network interface, and the bridge in it. Nothing comes in by another
/// interface. What DDS has to say goes to standard error. One at a time in a process, which has the
/// domain of the first until it ends: DDS would end that only after a packet to itself, which does
/// not come where the interface is gone.
class Network {
 public:
  /// Throws `std::runtime_error` when there is no such interface, or no room in the domain.
  explicit Network(const Configuration& configuration);

  [[nodiscard]] dds_entity_t participant() const { return participant_.handle(); }

  [[nodiscard]] const Interface& interface() const { return interface_; }

  /// The most bytes that a message may have, in either direction; larger ones from the network are
  /// dropped.
  static constexpr int mostBytes = 1 << 20;
  /// Of a text, which has a length and an end besides.
  static constexpr std::size_t mostText = mostBytes - 64;

 private:
  Interface interface_;
  Entity participant_;
};

/// Any thread.
class Writer {
 public:
  /// `topic` as DDS has it. Throws `std::runtime_error`.
  Writer(const Network& network, const std::string& topic, const dds_topic_descriptor_t& type,
         Delivery delivery);

  /// False when it did not go out, because readers took nothing for 99 ms.
  bool write(const void* message);
  /// What was written is no more, also for who comes later. `message` is any one.
  void dispose(const void* message);

 private:
  Entity topic_;
  Entity writer_;
};

/// One thread at a time.
class Reader {
 public:
  /// Standard delivery, but that messages wait here, 64 at most, rather than push each other out.
  /// Throws `std::runtime_error`.
  Reader(const Network& network, const std::string& topic, const dds_topic_descriptor_t& type);

  /// Waits for messages, hands those that came to `take`, and tells how many were lost.
  std::uint32_t take(int waitMs, const std::function<void(const void* message)>& take);

 private:
  Entity topic_;
  Entity reader_;
  Entity condition_;
  Entity waitset_;
};

}  // namespace bridge
