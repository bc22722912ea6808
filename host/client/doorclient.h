#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "host/base/values.h"
#include "host/client/dooraddress.h"

namespace host {

/// No machine answers there.
class NoMachine : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The machine ended before it had answered: whether it took what was asked is not known.
class DoorClosed : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A signal came while the machine was waited for, which `StopSignal` has; or it was abandoned.
class WaitStopped : public std::runtime_error {
 public:
  WaitStopped() : std::runtime_error("stopped by a signal") {}
};

/// The machine refused a request, all of it. `what()` has a line for each thing that is wrong, with
/// the field or the source location that it is about.
class DoorRefusal : public std::runtime_error {
 public:
  /// `error` is the object that the machine sent.
  DoorRefusal(unsigned status, const Json& error);

  /// Whether the request was wrong in itself, whatever the machine does.
  [[nodiscard]] bool isBadInput() const { return isBadInput_; }
  [[nodiscard]] const std::string& reason() const { return reason_; }
  /// The file that the machine needs besides; empty unless the reason is `needs_file`.
  [[nodiscard]] const std::string& file() const { return file_; }
  /// The same with a user's words for the fields: `nameOf` is given the path of each, and may
  /// answer with none.
  [[nodiscard]] DoorRefusal renamed(
      const std::function<std::string(const std::string& path)>& nameOf) const;

 private:
  unsigned status_;
  std::shared_ptr<const Json> error_;
  bool isBadInput_;
  std::string reason_;
  std::string file_;
};

/// A client's connection to the door of a machine. One thread at a time.
class DoorClient {
 public:
  /// Throws `NoMachine` when nobody listens there, or another user than this one and root.
  explicit DoorClient(const std::string& socketPath);
  explicit DoorClient(const DoorAddress& address, const Patience& patience = {});
  ~DoorClient();

  DoorClient(const DoorClient&) = delete;
  DoorClient& operator=(const DoorClient&) = delete;

  /// What the machine answers, within the time of its patience. Throws `DoorRefusal`, `DoorClosed`,
  /// and `WaitStopped` when a signal comes meanwhile.
  Json get(const std::string& target);
  /// The same of what is no JSON, as it is.
  std::string getText(const std::string& target);
  Json post(const std::string& target, const Json& body);
  /// `body` is JSON already.
  Json postText(const std::string& target, const std::string& body);
  Json remove(const std::string& target);

 private:
  class Connection;
  std::unique_ptr<Connection> connection_;
};

/// Events of a machine, as they come, on a connection of their own.
class EventLines {
 public:
  /// `target` is that of the events, with its query. Throws as `DoorClient`.
  EventLines(const std::string& socketPath, const std::string& target);
  EventLines(const DoorAddress& address, const std::string& target, const Patience& patience = {});
  ~EventLines();

  EventLines(const EventLines&) = delete;
  EventLines& operator=(const EventLines&) = delete;

  /// The next one; none after so long without any, and when a signal comes. Throws `DoorClosed`
  /// when the machine has ended without saying so.
  std::optional<Json> next(int waitMs);
  /// Whether the machine has said that no more come.
  [[nodiscard]] bool hasEnded() const;

 private:
  class Stream;
  std::unique_ptr<Stream> stream_;
};

/// As a part of a target.
std::string percentEncoded(const std::string& text);

}  // namespace host
