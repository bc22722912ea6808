// The variant for exported preferences. It must keep the type of each value: if a float
// became a text, the file would later be read with another type.

#include <variant>
#include <vector>

#include "platform/zr/zrvalue.h"

namespace ZR {

struct ZRValue::Content {
  std::variant<std::monostate, std::vector<ZRValue>, int, float, std::string> held;
};

ZRValue::ZRValue() : content_(std::make_unique<Content>()) {}
ZRValue::ZRValue(const std::string& text) : ZRValue() {
  content_->held = text;
}
ZRValue::ZRValue(const ZRValue& other) : content_(std::make_unique<Content>(*other.content_)) {}
ZRValue::~ZRValue() = default;

ZRValue& ZRValue::operator=(const ZRValue& other) {
  content_ = std::make_unique<Content>(*other.content_);
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
  const auto* array = std::get_if<std::vector<ZRValue>>(&content_->held);
  return array == nullptr ? 0 : static_cast<int>(array->size());
}
void ZRValue::arraySetSize(int size) {
  if (getType() != arrayType) {
    content_->held = std::vector<ZRValue>();
  }
  std::get<std::vector<ZRValue>>(content_->held).resize(static_cast<std::size_t>(size));
}
ZRValue& ZRValue::operator[](int index) {
  return std::get<std::vector<ZRValue>>(content_->held).at(static_cast<std::size_t>(index));
}
ZRValue::operator std::string&() {
  return std::get<std::string>(content_->held);
}

}  // namespace ZR
