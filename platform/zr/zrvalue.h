#pragma once

#include <memory>
#include <string>

#include "platform/export.h"

namespace ZR {

/// A value whose type is settled while the program runs: invalid (none), an
/// integer, a float, a string, or an array of values. Copies are deep.
///
/// One thread at a time. Not meant for the control cycle. Everything but the
/// tests of the type may throw `std::bad_alloc`; what asks for another type than
/// the value's, for an element that is not there, or for a negative size, throws
/// `ZRException`.
class PLATFORM_API ZRValue {
 public:
  enum Type : int { invalidType = 0, arrayType = 1, intType = 2, floatType = 3, stringType = 4 };

  /// Invalid.
  ZRValue();
  explicit ZRValue(const std::string& text);
  ZRValue(const ZRValue& other);
  ~ZRValue();

  ZRValue& operator=(const ZRValue& other);
  ZRValue& operator=(int number);
  ZRValue& operator=(float number);

  /// Makes it invalid.
  void clear();

  [[nodiscard]] bool isValid() const noexcept;
  /// One of `Type`.
  [[nodiscard]] int getType() const noexcept;
  /// The number of an array's elements; 0 for any other type.
  [[nodiscard]] int getSize() const noexcept;

  /// Makes it an array of so many elements, at least 0. Those of an array that are within
  /// the size stay; new ones are invalid.
  void arraySetSize(int size);
  /// An element of an array, counted from 0.
  [[nodiscard]] ZRValue& operator[](int index);
  [[nodiscard]] const ZRValue& operator[](int index) const;

  [[nodiscard]] int asInt() const;
  [[nodiscard]] float asFloat() const;
  [[nodiscard]] const std::string& asString() const;
  /// The text of a string, to be read or changed.
  operator std::string&();  // NOLINT(google-explicit-constructor)

 private:
  struct Content;
  std::unique_ptr<Content> content_;
};

}  // namespace ZR
