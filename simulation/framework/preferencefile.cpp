#include "simulation/framework/preferencefile.h"

#include <boost/locale/utf.hpp>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <pugixml.hpp>
#include <string>
#include <system_error>

#include "platform/zr/zrexception.h"
#include "simulation/framework.h"
#include "simulation/framework/outputfile.h"
#include "simulation/machine.h"

namespace simulation {
namespace {

using Utf8 = boost::locale::utf::utf_traits<char>;

constexpr char rootName[] = "preferences";
constexpr char version[] = "1";
/// Bounds the recursion of reading and writing.
constexpr int maxDepth = 100;
/// Attributes keep their white space.
constexpr unsigned int parseOptions = pugi::parse_minimal | pugi::parse_escapes;

/// XML holds Unicode text, but not every code point.
bool fitsXml(const std::string& text) {
  for (auto at = text.begin(); at != text.end();) {
    const boost::locale::utf::code_point point = Utf8::decode(at, text.end());
    const bool isControl = point < 0x20 && point != '\t' && point != '\n' && point != '\r';
    if (!boost::locale::utf::is_valid_codepoint(point) || isControl || point == 0xFFFE ||
        point == 0xFFFF) {
      return false;
    }
  }
  return true;
}

std::string hexadecimal(const std::string& bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    text += digits[static_cast<unsigned char>(byte) >> 4U];
    text += digits[static_cast<unsigned char>(byte) & 15U];
  }
  return text;
}

/// Appends to a text, which throws when out of memory.
struct TextWriter : pugi::xml_writer {
  std::string text;

  void write(const void* data, std::size_t size) override {
    text.append(static_cast<const char*>(data), size);
  }
};

/// The operations of the parser itself fail silently when out of memory.
pugi::xml_node addChild(pugi::xml_node parent, const char* name) {
  const pugi::xml_node child = parent.append_child(name);
  if (!child) {
    throw std::bad_alloc();
  }
  return child;
}

void addAttribute(pugi::xml_node node, const char* name, const std::string& value) {
  if (!node.append_attribute(name).set_value(value.c_str())) {
    throw std::bad_alloc();
  }
}

/// The shortest text that reads back as the same float; of a not-a-number, its bits.
void writeFloat(float number, pugi::xml_node node) {
  char text[32] = {};
  if (std::isnan(number)) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    std::to_chars(text, text + sizeof text - 1, bits, 16);
    addAttribute(node, "nan", text);
    return;
  }
  std::to_chars(text, text + sizeof text - 1, number);
  addAttribute(node, "value", text);
}

void write(const ZR::ZRValue& value, pugi::xml_node parent, int depth) {
  if (depth > maxDepth) {
    throw ZR::ZRException("arrays lie more than " + std::to_string(maxDepth) + " deep");
  }
  switch (value.getType()) {
    case ZR::ZRValue::arrayType: {
      const pugi::xml_node node = addChild(parent, "array");
      for (int i = 0; i < value.getSize(); ++i) {
        write(value[i], node, depth + 1);
      }
      break;
    }
    case ZR::ZRValue::intType:
      addAttribute(addChild(parent, "int"), "value", std::to_string(value.asInt()));
      break;
    case ZR::ZRValue::floatType:
      writeFloat(value.asFloat(), addChild(parent, "float"));
      break;
    case ZR::ZRValue::stringType: {
      const std::string& text = value.asString();
      const bool fits = fitsXml(text);
      addAttribute(addChild(parent, "string"), fits ? "value" : "bytes",
                   fits ? text : hexadecimal(text));
      break;
    }
    default:
      addChild(parent, "invalid");
  }
}

[[noreturn]] void refuse(const pugi::xml_node& node) {
  throw ZR::ZRException(std::string("<") + node.name() + "> holds no value that was written here");
}

/// The only attribute of an element.
std::string attribute(const pugi::xml_node& node, const char* name) {
  const pugi::xml_attribute found = node.first_attribute();
  if (std::strcmp(found.name(), name) != 0 || found.next_attribute() || node.first_child()) {
    refuse(node);
  }
  return found.value();
}

template <typename Number, typename... Format>
Number parsed(const pugi::xml_node& node, const std::string& text, Format... format) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [stop, failure] = std::from_chars(text.data(), end, number, format...);
  if (failure != std::errc() || stop != end) {
    refuse(node);
  }
  return number;
}

float readFloat(const pugi::xml_node& node) {
  if (!node.attribute("nan")) {
    return parsed<float>(node, attribute(node, "value"));
  }
  const auto bits = parsed<std::uint32_t>(node, attribute(node, "nan"), 16);
  float number = 0.0F;
  std::memcpy(&number, &bits, sizeof number);
  if (!std::isnan(number)) {
    refuse(node);
  }
  return number;
}

std::string readText(const pugi::xml_node& node) {
  if (!node.attribute("bytes")) {
    return attribute(node, "value");
  }
  const std::string digits = attribute(node, "bytes");
  std::string bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    const std::string pair = digits.substr(i, 2);
    if (pair.size() != 2) {
      refuse(node);
    }
    bytes += static_cast<char>(parsed<std::uint8_t>(node, pair, 16));
  }
  return bytes;
}

ZR::ZRValue read(const pugi::xml_node& node, int depth) {
  ZR::ZRValue value;
  const std::string type = node.name();
  if (type == "array" && depth <= maxDepth) {
    value.arraySetSize(static_cast<int>(std::distance(node.begin(), node.end())));
    int next = 0;
    for (const pugi::xml_node element : node.children()) {
      value[next++] = read(element, depth + 1);
    }
  } else if (type == "int") {
    value = parsed<int>(node, attribute(node, "value"));
  } else if (type == "float") {
    value = readFloat(node);
  } else if (type == "string") {
    value = ZR::ZRValue(readText(node));
  } else if (type != "invalid") {
    refuse(node);
  }
  return value;
}

void replaceFile(const std::string& path, const std::string& content) {
  const std::string failed = "the preference file " + path + " was not written: ";
  try {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    if (std::filesystem::is_symlink(path)) {
      throw Error("it is a symbolic link");
    }
    OutputFile file(path);
    file.write(content.data(), content.size());
    file.commit();
  } catch (const Error& error) {
    throw ZR::ZRException(failed + error.what());
  } catch (const std::system_error& error) {
    throw ZR::ZRException(failed + error.code().message());
  }
}

}  // namespace

void writePreferenceFile(const std::string& directory, const std::string& fileName,
                         const ZR::ZRValue& tree) {
  if (!isPreferenceFileName(fileName)) {
    throw ZR::ZRException("'" + fileName + "' is no name of a preference file in " + directory +
                          ": it is empty, leads out of the directory or is that of a part");
  }
  pugi::xml_document document;
  const pugi::xml_node root = addChild(document, rootName);
  addAttribute(root, "version", version);
  write(tree, root, 1);
  TextWriter writer;
  document.save(writer, "  ");
  replaceFile((std::filesystem::path(directory) / fileName).string(), writer.text);
}

bool isPreferenceFileName(const std::string& fileName) {
  return !fileName.empty() && fileName != "." && fileName != ".." &&
         fileName.find('/') == std::string::npos && fileName.find('\0') == std::string::npos &&
         !isPartName(fileName);
}

ZR::ZRValue readPreferenceFile(const std::string& path) {
  std::error_code none;
  if (std::filesystem::exists(path, none) && !std::filesystem::is_regular_file(path, none)) {
    throw ZR::ZRException(path + ": it is no regular file");
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw ZR::ZRException(path + ": " + std::strerror(errno));
  }
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  pugi::xml_document document;
  const pugi::xml_parse_result result =
      document.load_buffer(text.data(), text.size(), parseOptions, pugi::encoding_utf8);
  if (!result) {
    throw ZR::ZRException(path + ": " + result.description());
  }
  const pugi::xml_node root = document.first_child();
  const pugi::xml_node tree = root.first_child();
  const bool isOurs = std::strcmp(root.name(), rootName) == 0 &&
                      std::strcmp(root.attribute("version").value(), version) == 0;
  if (!isOurs || root.next_sibling() || !tree || tree.next_sibling()) {
    throw ZR::ZRException(path + ": no preference file of version " + version);
  }
  try {
    return read(tree, 1);
  } catch (const ZR::ZRException& error) {
    throw ZR::ZRException(path + ": " + error.what());
  }
}

}  // namespace simulation
