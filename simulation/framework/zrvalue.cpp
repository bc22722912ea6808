#include "platform/zr/zrvalue.h"

#include <cstddef>
#include <string>
#include <variant>
#include <vector>

#include "platform/zr/zrexception.h"

namespace ZR {

struct ZRValue::Content {
  using Array = std::vector<ZRValue>;

  /// The alternatives are in the order of `Type`.
  std::variant<std::monostate, Array, int, float, std::string> held;

  template <typename T>
  T& as(const char* wanted) {
    if (T* const found = std::get_if<T>(&held)) {
      return *found;
    }
    throw ZRException(std::string("the value is ") + names[held.index()] + ", not " + wanted);
  }

  static constexpr const char* names[] = {"invalid", "an array", "an integer", "a float",
                                          "a string"};
};

ZRValue::ZRValue() : content_(std::make_unique<Content>()) {}

ZRValue::ZRValue(const std::string& text) : ZRValue() {
  content_->held = text;
}

// The variant is not copied: in GCC 12 a copy that throws destroys a value that was never
// constructed.
ZRValue::ZRValue(const ZRValue& other) : ZRValue() {
  content_->held = other.content_->held;
}

ZRValue::~ZRValue() = default;

// Through a copy, since the other may be an element of this one.
ZRValue& ZRValue::operator=(const ZRValue& other) {
  ZRValue copy(other);
  content_.swap(copy.content_);
  return *this;
}

ZRValue& ZRValue::operator=(int number) {
  content_->held = number;
  return *this;
}

ZRValue& ZRValue::operator=(float number) {
  content_->held = number;
  return *this;
}

void ZRValue::clear() {
  content_->held = std::monostate();
}

bool ZRValue::isValid() const noexcept {
  return getType() != invalidType;
}

int ZRValue::getType() const noexcept {
  return static_cast<int>(content_->held.index());
}

int ZRValue::getSize() const noexcept {
  const auto* const array = std::get_if<Content::Array>(&content_->held);
  return array == nullptr ? 0 : static_cast<int>(array->size());
}

void ZRValue::arraySetSize(int size) {
  if (size < 0) {
    throw ZRException("an array cannot have " + std::to_string(size) + " elements");
  }
  if (getType() != arrayType) {
    content_->held = Content::Array();
  }
  std::get<Content::Array>(content_->held).resize(static_cast<std::size_t>(size));
}

ZRValue& ZRValue::operator[](int index) {
  auto& array = content_->as<Content::Array>("an array");
  if (index < 0 || index >= getSize()) {
    throw ZRException("the array has " + std::to_string(getSize()) +
                      " elements and none with the " + "index " + std::to_string(index));
  }
  return array[static_cast<std::size_t>(index)];
}

const ZRValue& ZRValue::operator[](int index) const {
  return const_cast<ZRValue&>(*this)[index];
}

int ZRValue::asInt() const {
  return content_->as<int>("an integer");
}

float ZRValue::asFloat() const {
  return content_->as<float>("a float");
}

const std::string& ZRValue::asString() const {
  return content_->as<std::string>("a string");
}

ZRValue::operator std::string&() {
  return content_->as<std::string>("a string");
}

}  // namespace ZR
