#include "simulation/preferencefile.h"

#include <boost/locale/utf.hpp>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <pugixml.hpp>
#include <sstream>
#include <string>
#include <system_error>

#include "platform/zr/zrexception.h"
#include "simulation/framework.h"
#include "simulation/machine.h"
#include "simulation/outputfile.h"

namespace simulation {
namespace {

using Utf8 = boost::locale::utf::utf_traits<char>;

constexpr char rootName[] = "preferences";
constexpr char version[] = "1";
/// Attributes keep their white space as it stands.
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

std::string bytesOf(const std::string& hexadecimal) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hexadecimal.size(); i += 2) {
    unsigned char byte = 0;
    std::from_chars(hexadecimal.data() + i, hexadecimal.data() + i + 2, byte, 16);
    bytes += static_cast<char>(byte);
  }
  return bytes;
}

/// The shortest text that reads back as the same float; the bits of what is not
/// a number.
void writeFloat(float number, pugi::xml_node node) {
  char text[32] = {};
  if (std::isnan(number)) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    std::to_chars(text, text + sizeof text - 1, bits, 16);
    node.append_attribute("nan") = text;
    return;
  }
  std::to_chars(text, text + sizeof text - 1, number);
  node.append_attribute("value") = text;
}

float readFloat(const pugi::xml_node& node) {
  float number = 0.0F;
  const std::string nan = node.attribute("nan").value();
  if (!nan.empty()) {
    std::uint32_t bits = 0;
    std::from_chars(nan.data(), nan.data() + nan.size(), bits, 16);
    std::memcpy(&number, &bits, sizeof bits);
    return number;
  }
  const std::string text = node.attribute("value").value();
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

void write(const ZR::ZRValue& value, pugi::xml_node parent) {
  switch (value.getType()) {
    case ZR::ZRValue::arrayType: {
      pugi::xml_node node = parent.append_child("array");
      for (int i = 0; i < value.getSize(); ++i) {
        write(value[i], node);
      }
      break;
    }
    case ZR::ZRValue::intType:
      parent.append_child("int").append_attribute("value") = value.asInt();
      break;
    case ZR::ZRValue::floatType:
      writeFloat(value.asFloat(), parent.append_child("float"));
      break;
    case ZR::ZRValue::stringType: {
      const std::string& text = value.asString();
      pugi::xml_node node = parent.append_child("string");
      if (fitsXml(text)) {
        node.append_attribute("value") = text.c_str();
      } else {
        node.append_attribute("bytes") = hexadecimal(text).c_str();
      }
      break;
    }
    default:
      parent.append_child("invalid");
  }
}

ZR::ZRValue read(const pugi::xml_node& node) {
  ZR::ZRValue value;
  const std::string type = node.name();
  if (type == "array") {
    value.arraySetSize(0);
    for (const pugi::xml_node element : node.children()) {
      value.arraySetSize(value.getSize() + 1);
      value[value.getSize() - 1] = read(element);
    }
  } else if (type == "int") {
    value = node.attribute("value").as_int();
  } else if (type == "float") {
    value = readFloat(node);
  } else if (type == "string") {
    const pugi::xml_attribute bytes = node.attribute("bytes");
    value = ZR::ZRValue(bytes ? bytesOf(bytes.value()) : node.attribute("value").value());
  } else if (type != "invalid") {
    throw ZR::ZRException("<" + type + "> is no type of value");
  }
  return value;
}

void replaceFile(const std::string& directory, const std::string& fileName,
                 const std::string& content) {
  const std::string path = (std::filesystem::path(directory) / fileName).string();
  const std::string failed = "the preference file " + path + " was not written: ";
  try {
    std::filesystem::create_directories(directory);
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
                          ": it is empty or leads out of the directory");
  }
  pugi::xml_document document;
  pugi::xml_node root = document.append_child(rootName);
  root.append_attribute("version") = version;
  write(tree, root);
  std::ostringstream text;
  document.save(text, "  ");
  replaceFile(directory, fileName, text.str());
}

bool isPreferenceFileName(const std::string& fileName) {
  return !fileName.empty() && fileName != "." && fileName != ".." &&
         fileName.find('/') == std::string::npos && fileName.find('\0') == std::string::npos;
}

ZR::ZRValue readPreferenceFile(const std::string& path) {
  pugi::xml_document document;
  const pugi::xml_parse_result result = document.load_file(path.c_str(), parseOptions);
  if (!result) {
    throw ZR::ZRException(path + ": " + result.description());
  }
  const pugi::xml_node root = document.child(rootName);
  if (std::strcmp(root.attribute("version").value(), version) != 0) {
    throw ZR::ZRException(path + ": no preference file of version " + version);
  }
  return read(root.first_child());
}

}  // namespace simulation
